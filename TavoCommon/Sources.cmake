# The library's sources, one folder per family, for both builds: TAVO_LIBRARY_SOURCES (absolute paths)
# and TAVO_LIBRARY_INCLUDE_DIRS (the family folders, where the private headers lie).
set(TAVO_LIBRARY_SOURCES "")
foreach(source
    # The call frame: checks, caches and the lock, the channel, strings, the bounded copy, argument
    # conversion, the module object and the structured guard.
    Frame/Check.cpp Frame/Library.cpp Frame/Module.cpp Frame/StrSafe.cpp Frame/String.cpp
    Frame/StructuredGuard.cpp Frame/Trace.cpp
    # Text: formatting of strings, messages, numbers, sizes, versions, dates and times; the time
    # value; paths, tokens, GUID and key text.
    Text/DateTime.cpp Text/Format.cpp Text/FormatBytes.cpp Text/FormatNumber.cpp Text/GuidText.cpp
    Text/KeyName.cpp Text/Path.cpp Text/Time.cpp Text/Tokens.cpp
    # The product: configuration, identity, locations, module files, language, strings, re-texting,
    # help.
    Product/Config.cpp Product/Directories.cpp Product/Global.cpp Product/Help.cpp Product/LoadString.cpp
    Product/ModuleFileName.cpp Product/Product.cpp Product/ResetText.cpp
    # The system: OS code, WOW64, system directories and names, file search, SSD, WMI.
    System/FindFile.cpp System/OsVersion.cpp System/QueryWMI.cpp System/SsdDetection.cpp
    System/SystemDirectories.cpp System/Wow64.cpp
    # The session: the launcher, processes, toasts, shell helpers, threads, COM from private DLLs.
    Session/ComObject.cpp Session/Execute.cpp Session/Processes.cpp Session/Shell.cpp Session/Thread.cpp
    Session/Toast.cpp)
  list(APPEND TAVO_LIBRARY_SOURCES ${CMAKE_CURRENT_LIST_DIR}/${source})
endforeach()

set(TAVO_LIBRARY_INCLUDE_DIRS "")
foreach(family Frame Text Product System Session)
  list(APPEND TAVO_LIBRARY_INCLUDE_DIRS ${CMAKE_CURRENT_LIST_DIR}/${family})
endforeach()

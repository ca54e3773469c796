# Stand-ins of the help and COM families: the system's HTML help control, bound by ordinal as the
# library binds it, and a private COM server, built twice so that two copies of one file name can
# be told apart.
add_library(HelpControlStandIn SHARED HelpControl.cpp HelpControl.def)
set_target_properties(HelpControlStandIn PROPERTIES PREFIX "" OUTPUT_NAME HelpStandIn)
target_link_libraries(HelpControlStandIn PRIVATE user32)
tavo_warnings(HelpControlStandIn)
tavo_static_runtime(HelpControlStandIn)

foreach(build 1 2)
  add_library(ComServerStandIn${build} SHARED ComServer.cpp ComServer.def)
  target_compile_definitions(ComServerStandIn${build} PRIVATE COM_SERVER_BUILD=${build})
  target_link_libraries(ComServerStandIn${build} PRIVATE uuid)
  tavo_warnings(ComServerStandIn${build})
  tavo_static_runtime(ComServerStandIn${build})
  add_dependencies(TavoStandIns ComServerStandIn${build})
endforeach()
set_target_properties(ComServerStandIn1 PROPERTIES PREFIX "" OUTPUT_NAME ComServer)
set_target_properties(ComServerStandIn2 PROPERTIES PREFIX "" OUTPUT_NAME ComServerOther)

add_dependencies(TavoStandIns HelpControlStandIn)

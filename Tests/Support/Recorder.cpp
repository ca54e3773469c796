#include "Recorder.h"

#include <memory>
#include <sstream>

namespace tavo::test {
namespace {

bool IsRecorder(HMODULE h)
{
    return h && ::GetProcAddress(h, "CorvRecorderGet") != NULL;
}

// The recorder loaded in this process. A test that also loads the real sink (same file name, by
// full path) loads the recorder first, so that the name finds the recorder.
HMODULE FindRecorder()
{
    const HMODULE h = ::GetModuleHandleA("CorvDebug.dll");
    return IsRecorder(h) ? h : NULL;
}

template <typename Fn>
Fn Export(const char* name)
{
    HMODULE h = FindRecorder();
    return h ? reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(h, name))) : NULL;
}

} // namespace

std::vector<RecordedLine> RecordedLines()
{
    std::vector<RecordedLine> lines;
    const auto get = Export<PFN_CORV_RECORDER_GET>("CorvRecorderGet");
    if (!get) return lines;
    auto rec = std::make_unique<CorvRecord>();
    // Up to the first index that is not there: lines may arrive, or a clear happen, meanwhile.
    for (int i = 0; get(i, rec.get()); ++i) {
        lines.push_back({rec->level, rec->module, rec->modulePointer, rec->file, rec->function,
                         rec->line, rec->stamp, rec->format, rec->text, rec->threadId});
    }
    return lines;
}

void ClearRecordedLines()
{
    if (const auto clear = Export<PFN_CORV_RECORDER_CLEAR>("CorvRecorderClear")) clear();
}

bool RecorderLoaded()
{
    return FindRecorder() != NULL;
}

int DroppedRecordedLines()
{
    const auto dropped = Export<PFN_CORV_RECORDER_DROPPED>("CorvRecorderDropped");
    return dropped ? dropped() : 0;
}

std::string Describe(const RecordedLine& line)
{
    std::ostringstream out;
    out << "level " << line.level << ' ' << line.file << '(' << line.line << ") " << line.function
        << ": \"" << line.format << "\" -> \"" << line.text << "\" [thread " << line.threadId << ", "
        << line.module << ']';
    return out.str();
}

} // namespace tavo::test

#include "Recorder.h"

#include <memory>

namespace tavo::test {

// An export of the recorder loaded in this process, or null. A test that also loads the real sink
// (same file name, by full path) loads the recorder first, so that the name finds the recorder.
template <typename Fn>
static Fn Export(const char* name)
{
    const HMODULE h = ::GetModuleHandleA("CorvDebug.dll");
    return h && ::GetProcAddress(h, "CorvRecorderGet") ? reinterpret_cast<Fn>(reinterpret_cast<void*>(::GetProcAddress(h, name))) : nullptr;
}

std::vector<RecordedLine> RecordedLines()
{
    std::vector<RecordedLine> lines;
    const auto get = Export<PFN_CORV_RECORDER_GET>("CorvRecorderGet");
    const auto r = std::make_unique<CorvRecord>();
    // Up to the first index that is not there: lines may arrive, or a clear happen, meanwhile.
    for (int i = 0; get && get(i, r.get()); ++i) {
        lines.push_back({r->level, r->module, r->modulePointer, r->file, r->function, r->line, r->stamp, r->format, r->text, r->threadId});
    }
    return lines;
}

void ClearRecordedLines()
{
    if (const auto clear = Export<PFN_CORV_RECORDER_CLEAR>("CorvRecorderClear")) clear();
}

bool RecorderLoaded() { return Export<PFN_CORV_RECORDER_GET>("CorvRecorderGet") != nullptr; }

int DroppedRecordedLines()
{
    const auto dropped = Export<PFN_CORV_RECORDER_DROPPED>("CorvRecorderDropped");
    return dropped ? dropped() : 0;
}

std::string Describe(const RecordedLine& l)
{
    return "level " + std::to_string(l.level) + " " + l.file + "(" + std::to_string(l.line) + ") " + l.function + ": \"" +
           l.format + "\" -> \"" + l.text + "\" [thread " + std::to_string(l.threadId) + ", " + l.module + "]";
}

} // namespace tavo::test

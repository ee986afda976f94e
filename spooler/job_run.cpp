#include "spooler/job_run.h"

#include <algorithm>
#include <span>
#include <vector>

#include "platform/posix/utf.h"
#include "spooler/document_file.h"
#include "spooler/opened_port.h"
#include "spooler/spooler_error.h"

namespace spooler {

namespace {

constexpr std::size_t kBufferSize = std::size_t{64} * 1024;
constexpr DWORD kPauseWhenNothingTakenMs = 500;

RunResult Failure(RunResult result, std::string reason)
{
    result.failed = true;
    result.error = GetLastError();
    result.reason = std::move(reason);
    if (result.error != ERROR_SUCCESS)
        result.reason += " (error " + std::to_string(result.error) + ")";
    return result;
}

// Hands the document to the port until it has all of it (`complete`), fails, or is to stop.
class Writing {
public:
    Writing(OpenedPort& target, RunControl& owner) : port(target), control(owner) {}

    RunResult Run(DocumentReader& document)
    {
        std::vector<BYTE> buffer(kBufferSize);
        while (const std::size_t size = document.Read(buffer)) {
            if (!Hand(std::span(buffer).first(size)))
                return result;
        }
        result.complete = true;
        return result;
    }
    std::uint64_t Written() const { return written; }

private:
    bool Hand(std::span<BYTE> bytes)
    {
        while (!bytes.empty()) {
            if (control.MustStop())
                return false;
            std::size_t taken = 0;
            const bool done = port.Write(bytes, &taken);
            const DWORD error = GetLastError();
            written += taken;
            bytes = bytes.subspan(taken);
            control.Report(done && taken == 0 ? JOB_PHASE_WAITING : JOB_PHASE_WRITING, written);
            if (!done) {
                SetLastError(error);
                result = Failure(result, "The port failed while taking the document's bytes.");
                return false;
            }
            if (taken == 0)
                control.Pause(kPauseWhenNothingTakenMs);
        }
        return true;
    }

    OpenedPort& port;
    RunControl& control;
    RunResult result;
    std::uint64_t written = 0;
};

}  // namespace

RunResult RunJob(const Monitor& monitor, const Job& job, const std::string& documentPath, RunControl& control)
{
    DocumentReader document(documentPath);
    OpenedPort port(monitor, job.port);
    if (!port.IsOpen())
        return Failure({}, "The port \"" + ToUtf8(job.port) + "\" doesn't exist.");
    if (control.MustStop())
        return {};
    if (!port.Start(job))
        return Failure({}, "The port could not start the document.");
    control.Report(JOB_PHASE_WRITING, 0);
    Writing writing(port, control);
    RunResult result = writing.Run(document);
    if (result.complete)
        control.Report(JOB_PHASE_ENDING, writing.Written());
    if (!port.End() && !result.failed)
        result = Failure(result, "The port failed to end the document.");
    return result;
}

}  // namespace spooler

#pragma once

#include <chrono>
#include <exception>
#include <string>
#include <string_view>

#include "cups/device_uri.h"
#include "cups/job_mark.h"
#include "cups/requests.h"
#include "spooler/printing.h"

namespace farlink_cups {

// Tells cupsd, and the drivers, how a copy comes along, and marks the job before the copy's last byte goes
// out.
class ProgressLines : public spooler::Listener {
public:
    // `copy` stands before each text: "copy 2 of 3: ", or nothing.
    ProgressLines(const DeviceUri& uri, std::string copy, JobMark& mark, Requests& requests);
    // Takes back the state reasons that stand.
    ~ProgressLines() override;

    void OnProgress(const spooler::Progress& now) override;
    void OnLogLine(std::string_view line) override;
    void OnAttemptFailed(const spooler::Result& result, std::chrono::milliseconds pause) override;
    void OnBeforeLastByte() override;
    void OnReadBack(std::span<const BYTE> bytes) override;

    // When the mark couldn't be written no last byte went out; then this throws what the mark threw.
    void RethrowMarkFailure() const;

private:
    std::string TextOf(const spooler::Progress& now) const;
    void Show(spooler::Phase now);

    const DeviceUri& uri;
    const std::string copy;
    JobMark& mark;
    Requests& requests;
    std::string shown;
    spooler::Phase phase = spooler::Phase::Connecting;  // of what is shown
    std::chrono::steady_clock::time_point shownAt;
    std::string_view reason;  // the state reason that stands
    bool lastByteIsOut = false;
    std::exception_ptr markFailure;
};

// "cause; remedy", as far as they are known.
std::string TextOf(const spooler::Reason& reason);

}  // namespace farlink_cups

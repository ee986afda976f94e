#pragma once

#include <memory>

#include "farlink/job_following.h"

namespace farlink {

// Shows how one job comes along. Used by one thread.
class ProgressView {
public:
    virtual ~ProgressView() = default;
    // Called again and again, with the last state too.
    virtual void Show(const FollowedJob& job, const JOB_PROGRESS& progress) = 0;
    // Something to tell beside it, for people.
    virtual void Note(const std::string& text) = 0;
};

// JSON lines, one for each change of state; or a moving bar where standard output is a terminal; or plain
// lines, one for each change.
std::unique_ptr<ProgressView> MakeProgressView(bool json);

}  // namespace farlink

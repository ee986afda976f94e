#pragma once

#include <cups/backend.h>

#include <string>

#include "cups/device_uri.h"
#include "cups/job_arguments.h"
#include "cups/requests.h"

namespace farlink_cups {

// Prints the job, copy by copy, and tells cupsd what it does meanwhile and what is to become of the job.
// Throws spooler::SpoolerError or std::exception where the installation is broken.
// `life` is the Life() of the cupsd above us.
cups_backend_t RunJob(const Job& job, const DeviceUri& uri, const std::string& life, Requests& requests);

}  // namespace farlink_cups

#include "cups/job_arguments.h"

#include <cups/cups.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <stdexcept>
#include <string_view>

namespace farlink_cups {

namespace {

constexpr std::string_view kUuidPrefix = "urn:uuid:";
constexpr std::size_t kCountWithFile = 7;

std::string JobId(const char* options)
{
    cups_option_t* list = nullptr;
    const int count = cupsParseOptions(options, 0, &list);
    const char* value = cupsGetOption("job-uuid", count, list);
    std::string id = value == nullptr ? "" : value;
    cupsFreeOptions(count, list);
    if (id.starts_with(kUuidPrefix))
        id.erase(0, kUuidPrefix.size());
    const auto isFit = [](char unit) {
        return (unit >= '0' && unit <= '9') || (unit >= 'a' && unit <= 'z') || (unit >= 'A' && unit <= 'Z') ||
               unit == '-';
    };
    if (id.empty() || !std::ranges::all_of(id, isFit))
        throw std::runtime_error("the job comes without its job-uuid; let cupsd run this program");
    return id;
}

std::string NumberText(unsigned number)
{
    const std::string digits = std::to_string(number);
    return std::string(3 - std::min<std::size_t>(digits.size(), 3), '0') + digits;
}

// cupsd's spooled files of a job are called d00007-001, d00007-002 ...
void NumberDocuments(Job& job)
{
    const std::string stem = job.file.substr(0, job.file.rfind('-') + 1);
    const std::string ownNumber = job.file.substr(stem.size());
    const std::string jobId = job.id;
    for (unsigned number = 1; access((stem + NumberText(number)).c_str(), F_OK) == 0; ++number) {
        job.documents.push_back(jobId + '-' + NumberText(number));
        if (NumberText(number) == ownNumber)
            job.id = job.documents.back();
    }
}

std::string MarkFolder()
{
    const char* cache = std::getenv("CUPS_CACHEDIR");
    if (cache == nullptr || *cache == 0)
        throw std::runtime_error("CUPS_CACHEDIR isn't set; let cupsd run this program");
    return std::string(cache) + "/farlink";
}

// On standard input the copies are in the document already.
unsigned Copies(std::string_view text, bool isFile)
{
    unsigned copies = 0;
    const auto [end, error] = std::from_chars(text.begin(), text.end(), copies);
    if (error != std::errc() || end != text.end() || copies == 0)
        throw std::runtime_error("'" + std::string(text) + "' is no number of copies");
    return isFile ? copies : 1;
}

}  // namespace

Job ParseJob(std::span<char*> arguments)
{
    const bool isFile = arguments.size() == kCountWithFile;
    Job job{JobId(arguments[5]),        {},          arguments[3], Copies(arguments[4], isFile),
            isFile ? arguments[6] : "", MarkFolder()};
    if (isFile)
        NumberDocuments(job);
    return job;
}

}  // namespace farlink_cups

#pragma once

#include <span>
#include <string>
#include <vector>

namespace farlink_cups {

// What cupsd tells of a job.
struct Job {
    std::string id;  // of the document: the same in each of its runs, fit as a file's name
    std::vector<std::string> documents;  // the ids of all in the job: cupsd runs us once for each
    std::string title;
    unsigned copies = 1;
    std::string file;        // empty: the document comes on standard input
    std::string markFolder;  // where the job's mark lies
};

// Of the arguments URI JOB USER TITLE COPIES OPTIONS [FILE] and the environment. Throws std::runtime_error
// with a sentence for people.
Job ParseJob(std::span<char*> arguments);

}  // namespace farlink_cups

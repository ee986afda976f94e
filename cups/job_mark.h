#pragma once

#include <stop_token>
#include <string>

// What a run of a job leaves for the job's next run, so that no card comes out twice unasked when a process
// or the machine dies: a file by the job's name, synced line by line, of which the last line counts.
namespace farlink_cups {

class JobMark {
public:
    enum class State {
        Clear,    // no copy is in doubt: the run goes on behind those that are printed
        InDoubt,  // one more copy may have been printed
        Held,     // the run ended with the order to hold the job
        Through   // every copy was printed, or the job was cancelled
    };

    // Opens the mark of `job` in `folder`, which is made if need be, and locks it: while an earlier run of
    // the job is still ending, that is waited for. `life` is the Life() of the cupsd above us. Throws
    // std::runtime_error with a sentence for people when the mark can't be had, and spooler::SpoolerError
    // with ERROR_PRINT_CANCELLED when a stop comes while it waits.
    JobMark(const std::string& folder, const std::string& job, std::string life, std::stop_token stop);
    // Takes the mark away unless it says something.
    ~JobMark();
    JobMark(const JobMark&) = delete;
    JobMark& operator=(const JobMark&) = delete;

    // What the earlier run left. Held and Through count as Clear once the cupsd that saw that run end gives
    // us the job again: somebody released it, or wants it once more. Another cupsd may only not have heard of
    // that end.
    State Found() const { return found; }
    unsigned CopiesPrinted() const { return copies; }
    // Whether that run was still at work when this one began.
    bool HadToWait() const { return hadToWait; }
    // Whether the same cupsd had ordered it.
    bool IsOfThisLife() const { return isOfThisLife; }

    // Each is on the disk when it returns, or throws std::runtime_error with a sentence for people.
    void Note(State state);
    void NotePrinted(bool last);  // one more copy

    // Whether the last run of the job came to its end.
    static bool IsThrough(const std::string& folder, const std::string& job);

    // Takes away the marks in `folder` that no run can need any more. Failures are left for the next time.
    static void RemoveOld(const std::string& folder, const std::string& life);

private:
    void Lock(std::stop_token stop);
    void Interpret();

    const std::string path;
    const std::string life;
    int file = -1;
    State state = State::Clear;
    State found = State::Clear;
    unsigned copies = 0;
    bool hadToWait = false;
    bool isOfThisLife = false;
};

}  // namespace farlink_cups

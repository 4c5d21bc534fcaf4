// One preparation as the supervisor sees it: its worker process, how far that is, what it came to.
#ifndef IXFS_PREPARE_PREPARATION_H
#define IXFS_PREPARE_PREPARATION_H

#include "phase.h"
#include "records.h"
#include "request.h"
#include "result.h"
#include "voice.h"
#include "worker.h"

#include <chrono>
#include <functional>
#include <optional>
#include <string>

class Preparation
{
public:
    // Starts the worker; see there.
    Preparation(const Request& request, const Voice& voice, const std::function<void()>& in_child);

    int records_descriptor() { return worker_.records().number(); }
    int errors_descriptor() { return worker_.errors().number(); } // -1 once it is closed

    // Takes in what there is to read. Returns false when the worker has ended.
    bool read_records();
    void read_errors();

    const Request& request() const { return request_; }
    const Phase& phase() const { return phase_; }

    // If it still waits for its turn to mount, ends it there: nothing is mounted. Else it goes on
    // to its end.
    void cut_short();

    // How long it still may pause for the configuration; nothing where it was said before.
    std::optional<long> pause_to_announce();

    // Once the worker has ended: looks whether the image is still mounted, and says so.
    Result finish(int signal);

    // Kills the worker, and says what that leaves.
    void give_up();

private:
    void take(const LogLine& line);
    void take(OwnMounts&& mounts) { mounts_ = std::move(mounts); }
    void take(Outcome&& outcome) { outcome_ = std::move(outcome); }
    void take_error_lines(bool at_end);
    void take_outcome(Result& result, int end_signal);
    void await_end();
    void look_for_mounts(Result& result);
    void look_for_helpers();

    const Request request_;
    const Voice& voice_;
    const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
    Worker worker_;
    RecordReader reader_;
    std::string error_text_; // of the helper: what is not yet a whole line
    Phase phase_;
    OwnMounts mounts_;
    std::optional<Outcome> outcome_;
    bool cut_short_ = false;
    bool pause_announced_ = false;
};

#endif

#include "supervisor.h"

#include "progress.h"

#include <ixfs.h>
#include <poll.h>
#include <string>
#include <system_error>
#include <thread>

namespace
{

constexpr std::chrono::milliseconds time_of_one_request{50};
constexpr int milliseconds_of_progress = 500; // how often times in it are shown anew

// Of several at once, what fits on a line.
std::string progress_of_all(const std::list<Preparation>& running, const Queue& queue,
                            std::size_t failed, bool finishing)
{
    const auto now = Phase::Time::clock::now();
    if (queue.all() == 1)
        return progress_of(running.front().phase(), running.front().request().server, now,
                           finishing);
    std::string line =
        std::to_string(queue.done()) + " of " + std::to_string(queue.all()) + " done";
    if (failed != 0)
        line += ", " + std::to_string(failed) + " failed";
    for (const Preparation& preparation : running) {
        const Request& request = preparation.request();
        line += "; " + request.server + " " + request.backup_id + ": " +
                progress_of(preparation.phase(), request.server, now, finishing);
    }
    return line;
}

Result not_started(const Request& request, const std::system_error& error)
{
    Result result;
    result.server = request.server;
    result.backup_id = request.backup_id;
    result.status = EC_SYSTEM_ERROR;
    result.status_text = std::string("no process can be started: ") + error.what();
    result.step = step_name(Step::starting);
    return result;
}

} // namespace

void Supervisor::run(const std::vector<Request>& requests, int jobs, const OnResult& on_result)
{
    Queue queue(requests, jobs);
    start_more(requests, queue, on_result);
    while (!running_.empty()) {
        show_progress(queue);
        wait_for_something();
        take_signals();
        if (gave_up_)
            break;
        take_ended(queue, on_result);
        if (signal_ != 0)
            queue.stop();
        start_more(requests, queue, on_result);
    }
    if (!gave_up_)
        take_signals(); // that came at the very end
    console_.hide_progress();
}

void Supervisor::start_more(const std::vector<Request>& requests, Queue& queue,
                            const OnResult& on_result)
{
    while (const std::optional<std::size_t> number = queue.begin_next()) {
        try {
            running_.emplace_back(requests[*number], voice_, [this] { signals_.let_through(); });
        } catch (const std::system_error& error) {
            end(not_started(requests[*number], error), queue, on_result);
        }
    }
}

void Supervisor::end(const Result& result, Queue& queue, const OnResult& on_result)
{
    queue.ended(result.server);
    failed_ += result.status != EC_OK ? 1 : 0;
    on_result(result);
}

void Supervisor::wait_for_something()
{
    std::vector<pollfd> descriptors{{signals_.descriptor().number(), POLLIN, 0}};
    for (const Outlet* outlet : {&console_.errors(), &output_}) {
        if (outlet->waits())
            descriptors.push_back({outlet->descriptor(), POLLOUT, 0});
    }
    for (Preparation& preparation : running_) {
        if (!holds_back())
            descriptors.push_back({preparation.records_descriptor(), POLLIN, 0});
        descriptors.push_back({preparation.errors_descriptor(), POLLIN, 0}); // -1 is passed over
    }
    poll(descriptors.data(), descriptors.size(),
         console_.shows_progress() ? milliseconds_of_progress : -1);
    console_.errors().go_on();
    output_.go_on();
}

// Whether no more log lines are taken in: nobody reads those that there are.
bool Supervisor::holds_back() const
{
    return console_.errors().waits() && signal_ == 0;
}

void Supervisor::take_signals()
{
    while (const int signal = signals_.take()) {
        if (signal_ == 0)
            answer_first_signal(signal);
        else if (signal != SIGHUP) // a service manager and the end of a terminal send it unasked
            return give_up();
    }
}

// Who has got no answer yet has not been told that another signal gives up: timeout(1), for one,
// sends its signal to this process and then to the group.
void Supervisor::answer_first_signal(int signal)
{
    signal_ = signal;
    std::this_thread::sleep_for(time_of_one_request);
    while (signals_.take() != 0)
        continue;
    console_.hurry();
    voice_.say("finishing; the image will be unmounted; again to give up");
}

void Supervisor::give_up()
{
    gave_up_ = true;
    console_.hide_progress();
    for (Preparation& preparation : running_)
        preparation.give_up();
}

void Supervisor::take_ended(Queue& queue, const OnResult& on_result)
{
    for (auto preparation = running_.begin(); preparation != running_.end();) {
        const bool goes_on = holds_back() || preparation->read_records();
        preparation->read_errors();
        if (goes_on) {
            if (signal_ != 0)
                preparation->cut_short();
            ++preparation;
            continue;
        }
        end(preparation->finish(signal_), queue, on_result);
        preparation = running_.erase(preparation);
    }
    announce_pauses();
}

// Elsewhere than in the progress line, and only to one who waits for the end.
void Supervisor::announce_pauses()
{
    if (signal_ == 0 || console_.shows_progress())
        return;
    for (Preparation& preparation : running_) {
        if (const std::optional<long> left = preparation.pause_to_announce())
            voice_.say("waiting for the configuration of " + preparation.request().backup_id +
                       ", which cannot be cut short: up to " + std::to_string(*left) + " s");
    }
}

void Supervisor::show_progress(const Queue& queue)
{
    if (!console_.shows_progress())
        return;
    console_.show_progress(progress_of_all(running_, queue, failed_, signal_ != 0));
}

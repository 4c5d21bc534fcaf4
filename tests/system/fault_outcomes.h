// What an entry point must come to when a call fails: one result, or one for each stretch of its
// log in which the call can fail. Log lines are the interface's own, and so tell where a call
// stands better than its number does.
//
//     {fails(on_popen, EMFILE), {{at_start, EC_SYSTEM_ERROR},
//                                {"INF - mount point - ", makes_no_difference}}},
#ifndef IXFS_TESTS_FAULT_OUTCOMES_H
#define IXFS_TESTS_FAULT_OUTCOMES_H

#include "log_catalogue.h"

#include <initializer_list>
#include <set>
#include <string>
#include <vector>

// In place of a result: the one without a fault.
inline constexpr int makes_no_difference = 10'000;

// For a stretch: what begins it is no line.
inline constexpr char at_start[] = "";

enum class MountedImage { is_gone, is_left };

// From a line that begins so to the next line that another stretch of the same row begins with.
struct Stretch {
    const char* line;
    int result;
    MountedImage image = MountedImage::is_gone;
};

struct Outcomes : std::vector<Stretch> {
    Outcomes(int result) : std::vector<Stretch>{{at_start, result}} {}
    Outcomes(std::initializer_list<Stretch> stretches) : std::vector<Stretch>(stretches) {}
};

// Follows one run of an entry point through its log, from the creation on, and finds what it must
// come to. Where several calls fail, the first decides whose failure makes a difference. Allocates
// nothing meanwhile.
class OutcomeFinder
{
public:
    OutcomeFinder(const Outcomes& outcomes, int undisturbed_result);
    ~OutcomeFinder();
    OutcomeFinder(const OutcomeFinder&) = delete;
    OutcomeFinder& operator=(const OutcomeFinder&) = delete;

    // A log callback. Takes the lines of the thread that made the finder; drops all others.
    static void callback(int severity, const char* function_tag, const char* message);

    void call_fails();

    // Whether a call failed that is in no stretch.
    bool is_at_a_loss() const { return at_a_loss_; }

    int result() const;
    MountedImage image() const;

    // The first line that the catalogue of log lines lacks; empty where it has them all.
    const char* uncatalogued_line() const { return uncatalogued_line_; }

    // Adds the stretches in which a call failed.
    void add_reached(std::set<const Stretch*>& reached) const;

private:
    void take(const char* message);
    void look_up(int severity, const char* function_tag, const char* message);
    bool makes_difference(const Stretch& stretch) const;

    static thread_local OutcomeFinder* current_;

    const Outcomes& outcomes_;
    const int undisturbed_result_;
    const Stretch* stretch_ = nullptr;
    const Stretch* deciding_ = nullptr;
    std::vector<bool> reached_;
    const LogCatalogue& catalogue_;
    bool at_a_loss_ = false;
    char uncatalogued_line_[2048] = "";
};

#endif

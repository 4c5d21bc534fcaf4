#include "fault_outcomes.h"

#include <cstdio>
#include <cstring>

thread_local OutcomeFinder* OutcomeFinder::current_ = nullptr;

OutcomeFinder::OutcomeFinder(const Outcomes& outcomes, int undisturbed_result)
    : outcomes_(outcomes), undisturbed_result_(undisturbed_result), reached_(outcomes.size()),
      catalogue_(LogCatalogue::of_the_project())
{
    current_ = this;
    take(at_start);
}

OutcomeFinder::~OutcomeFinder()
{
    current_ = nullptr;
}

void OutcomeFinder::callback(int severity, const char* function_tag, const char* message)
{
    if (current_ == nullptr)
        return;
    current_->look_up(severity, function_tag, message);
    current_->take(message);
}

void OutcomeFinder::look_up(int severity, const char* function_tag, const char* message)
{
    if (uncatalogued_line_[0] == '\0' && !catalogue_.has(severity, function_tag, message))
        std::snprintf(uncatalogued_line_, sizeof(uncatalogued_line_), "%d %s %s", severity,
                      function_tag, message);
}

void OutcomeFinder::take(const char* message)
{
    for (const Stretch& stretch : outcomes_) {
        const std::size_t length = std::strlen(stretch.line);
        if (length == 0 ? *message == '\0' : std::strncmp(message, stretch.line, length) == 0)
            stretch_ = &stretch;
    }
}

void OutcomeFinder::call_fails()
{
    if (stretch_ == nullptr) {
        at_a_loss_ = true;
        return;
    }
    reached_[static_cast<std::size_t>(stretch_ - outcomes_.data())] = true;
    if (deciding_ == nullptr && makes_difference(*stretch_))
        deciding_ = stretch_;
}

bool OutcomeFinder::makes_difference(const Stretch& stretch) const
{
    return stretch.image == MountedImage::is_left ||
           (stretch.result != makes_no_difference && stretch.result != undisturbed_result_);
}

int OutcomeFinder::result() const
{
    return deciding_ != nullptr && deciding_->result != makes_no_difference ? deciding_->result
                                                                            : undisturbed_result_;
}

MountedImage OutcomeFinder::image() const
{
    return deciding_ != nullptr ? deciding_->image : MountedImage::is_gone;
}

void OutcomeFinder::add_reached(std::set<const Stretch*>& reached) const
{
    for (std::size_t i = 0; i < outcomes_.size(); ++i) {
        if (reached_[i])
            reached.insert(&outcomes_[i]);
    }
}

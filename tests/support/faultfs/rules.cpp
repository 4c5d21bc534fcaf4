#include "rules.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <fnmatch.h>

namespace faultfs
{

bool Rule::concerns(const Call& call) const
{
    return !lifted && (operations & mask(call.operation)) != 0 && call.end > from &&
           ::fnmatch(pattern.c_str(), call.path.c_str(), 0) == 0;
}

RuleId Rules::add(Rule rule)
{
    rules_.push_back(std::move(rule));
    return rules_.size();
}

Verdict Rules::judge(Call& call, RuleId last)
{
    for (RuleId id = last + 1; id <= rules_.size(); ++id) {
        Rule& rule = rules_[id - 1];
        if (!rule.concerns(call))
            continue;
        if (call.begin < rule.from) {
            if (rule.armed() && rule.effect != Effect::pass)
                call.end = rule.from;
            continue;
        }
        const bool fires = rule.armed();
        ++rule.seen;
        if (!fires)
            continue;
        ++rule.fired;
        if (rule.effect != Effect::pass)
            return {rule.effect, rule.error, id};
    }
    return {};
}

bool Rules::hide(const std::string& path) const
{
    const Call lookup{Operation::lookup, path};
    return std::any_of(rules_.begin(), rules_.end(), [&](const Rule& rule) {
        return rule.error == ENOENT && rule.armed() && rule.concerns(lookup);
    });
}

} // namespace faultfs

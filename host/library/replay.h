// What a recording may set in the run that replays it. A player lets recorded keys win; here the user's
// settings override them again, and output files and peers are never taken from a recording.
#pragma once

#include <functional>
#include <set>
#include <string>

#include "scansteps/host.h"

namespace scansteps::host {

class ReplayRules
{
  public:
    /// `warn` is called once for each distinct warning.
    ReplayRules(const Pipeline& pipeline, std::function<void(const std::string&)> warn)
        : pipeline_(pipeline), warn_(std::move(warn))
    {
    }
    /// `record` is an initialise event that leaves the player at that index.
    void apply(std::size_t player, varitype& record);

  private:
    void warnOnce(const std::string& text);
    void mergeUsers(std::size_t player, varitype& record);
    void compareTop(const Struct& given, const Struct& recorded, const Struct& winners,
                    const std::string& prefix);
    void protect(std::size_t player, const SettingInfo& setting, const varitype& user, varitype& record);
    bool isMissed(std::size_t player, const char* path) const;

    const Pipeline& pipeline_;
    std::function<void(const std::string&)> warn_;
    std::set<std::string> said_;
};

}  // namespace scansteps::host

// A model file in front of viewers.
#pragma once

#include <functional>
#include <string>

#include "mesh.h"
#include "session.h"

namespace scansteps::viewer {

class ModelView final : public Subject
{
  public:
    /// Throws FileError.
    ModelView(Session& session, const std::string& path);
    /// Serves until `interrupted` says so.
    void stay(const std::function<bool()>& interrupted);

    Json hello() const override;
    void set(const SetSetting& setting) override;
    Json act(const Action& action) override;
    void watched(bool isWatched) override;

  private:
    std::string name_;
};

}  // namespace scansteps::viewer

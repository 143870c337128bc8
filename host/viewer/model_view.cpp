// The model is read once, before the page is served.
#include "model_view.h"

#include <chrono>
#include <memory>
#include <stdexcept>
#include <thread>

#include "library/platform.h"
#include "model_file.h"

namespace scansteps::viewer {

ModelView::ModelView(Session& session, const std::string& path)
    : name_(host::utf8FromPath(host::pathFromUtf8(path).filename()))
{
    auto shot = std::make_shared<Shot>();
    auto mesh = std::make_shared<Mesh>(readModel(path));
    shot->frame = 1;
    Json messages = Json::array();
    if (!mesh->error.empty()) messages.push_back({{"level", "warning"}, {"text", mesh->error}, {"step", 0}});
    shot->mesh = std::move(mesh);
    session.setSubject(*this);
    session.stage().publish(1, std::move(shot), false);
    session.setStatus({{"what", "status"},
                       {"state", "model"},
                       {"frame", 1},
                       {"steps", {{{"frame", ""}, {"model", true}}}},
                       {"messages", std::move(messages)}});
}

void ModelView::stay(const std::function<bool()>& interrupted)
{
    while (!interrupted()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
}

Json ModelView::hello() const
{
    Json step = {{"kind", "model"},          {"name", name_},  {"label", name_},
                 {"source", true},           {"tried", false}, {"summary", "A model file."},
                 {"settings", Json::array()}};
    return {{"mode", "model"}, {"title", name_}, {"steps", {std::move(step)}}};
}

void ModelView::set(const SetSetting&)
{
    throw std::runtime_error("a model has no settings");
}

Json ModelView::act(const Action&)
{
    throw std::runtime_error("a model cannot do that");
}

void ModelView::watched(bool) {}

}  // namespace scansteps::viewer

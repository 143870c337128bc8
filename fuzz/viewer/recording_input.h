// What the fuzz target of viewed recordings does with its input, shared with the test that replays the
// corpus.
#pragma once

#include <cstdlib>
#include <string>

#include "model_input.h"
#include "scansteps/host.h"
#include "viewer/overlays.h"
#include "viewer/recording_view.h"

namespace scansteps::fuzzing {

/// Every record that can be read is shown: the picture, overlays, a page of each entry, the model.
inline void showRecords(const std::string& path)
try {
    using What = viewer::Request::What;
    const viewer::RecordingIndex index(path);
    const auto pool = std::make_shared<viewer::FramePool>();
    for (std::size_t i = 0; i < std::min<std::size_t>(index.size(), 8); ++i) try {
            const varitype record = index.read(i);
            const auto shot = viewer::takeShot(record, nullptr, index.description(i), *pool);
            viewer::countOverlays(record.as<Struct>());
            viewer::Request request;
            request.slot = "a";
            request.width = request.height = 64;
            request.histogram = true;
            for (const What what : {What::Picture, What::Overlays, What::Value, What::Record}) {
                request.what = what;
                request.exact = !request.exact;
                if (!viewer::answerWith(request, *shot)) std::abort();
            }
            for (const auto& [key, value] : record.as<Struct>()) {
                request.path = {key};
                if (!viewer::answerWith(request, *shot)) std::abort();
            }
            checkMesh(viewer::meshOf(record.as<Struct>()), index.bytes(i));
        } catch (const host::FileError& error) {
            if (*error.what() == '\0') std::abort();
        }
} catch (const host::FileError&) {
}

}  // namespace scansteps::fuzzing

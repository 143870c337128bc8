// One function a sort of answer; all of them run on the thread that encodes.
#include "answers.h"

#include <cstring>

#include "library/json_values.h"
#include "mesh.h"
#include "overlays.h"
#include "record_tree.h"

namespace scansteps::viewer {

namespace {

Json headOf(const Request& request, const Shot& shot)
{
    return {{"slot", request.slot},
            {"step", request.step},
            {"tuned", request.tuned},
            {"version", shot.version},
            {"frame", shot.frame}};
}

void addLayout(Json& head, const Layout& layout)
{
    head["width"] = layout.width;
    head["height"] = layout.height;
    head["samples"] = layout.name();
    head["kind"] = kindTypeName(layout.kind);
    head["channels"] = layout.channels;
    head["text"] = layout.text();
}

void addHistogram(Json& head, const Array& frame, const Layout& layout)
{
    const Histogram histogram = histogramOf(frame, layout);
    head["histogram"] = {{"least", histogram.least},
                         {"greatest", histogram.greatest},
                         {"low", histogram.low},
                         {"high", histogram.high},
                         {"bins", histogram.bins}};
}

Answer picture(const Request& request, const Shot& shot)
{
    Json head = headOf(request, shot);
    head["what"] = "picture";
    const Array* frame = shot.pixels();
    if (frame == nullptr || shot.layout.width == 0) return envelope(head);
    addLayout(head, shot.layout);
    const Rect whole{0, 0, shot.layout.width, shot.layout.height};
    const Rect region = request.region.width > 0 ? clipped(request.region, shot.layout) : whole;
    head["region"] = {region.x, region.y, region.width, region.height};
    const Window automatic = autoWindow(*frame, shot.layout);
    head["auto"] = {automatic.first, automatic.second};
    const Window window = request.window.value_or(automatic);
    head["window"] = {window.first, window.second};
    if (request.histogram) addHistogram(head, *frame, shot.layout);
    if (request.exact)
        if (const auto bytes = exactOf(*frame, shot.layout, region)) {
            head["format"] = "png";
            return envelope(head, *bytes);
        }
    const JpegPicture jpeg = jpegOf(*frame, shot.layout, region, request.width, request.height, window);
    head["format"] = "jpeg";
    return envelope(head, jpeg.bytes);
}

Answer overlays(const Request& request, const Shot& shot)
{
    Json head = headOf(request, shot);
    head["what"] = "overlays";
    Overlays found = overlaysOf(shot.record.as<Struct>(), shot.layout);
    head["overlays"] = std::move(found.head);
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(found.numbers.data());
    return envelope(head, {bytes, found.numbers.size() * sizeof(float)});
}

Answer record(const Request& request, const Shot& shot)
{
    Json head = headOf(request, shot);
    head["what"] = "record";
    head["page"] = recordPage(shot.record, request.path, request.first);
    return envelope(head);
}

Answer value(const Request& request, const Shot& shot)
{
    Json head = headOf(request, shot);
    head["what"] = "value";
    head["x"] = request.x;
    head["y"] = request.y;
    const Array* frame = shot.pixels();
    head["value"] = frame != nullptr ? valueText(*frame, shot.layout, request.x, request.y) : "";
    return envelope(head);
}

}  // namespace

Answer envelope(const Json& head, std::span<const std::uint8_t> payload)
{
    std::string text = host::dumpLine(head);
    text.resize((text.size() + 3) / 4 * 4, ' ');
    auto bytes = std::make_shared<Bytes>(4 + text.size() + payload.size());
    const auto length = std::uint32_t(text.size());
    for (unsigned i = 0; i < 4; ++i) (*bytes)[i] = std::uint8_t(length >> (8 * i));
    std::memcpy(bytes->data() + 4, text.data(), text.size());
    if (!payload.empty()) std::memcpy(bytes->data() + 4 + text.size(), payload.data(), payload.size());
    return bytes;
}

Answer answerWith(const Request& request, const Shot& shot)
{
    switch (request.what) {
        case Request::What::Picture:
            return picture(request, shot);
        case Request::What::Overlays:
            return overlays(request, shot);
        case Request::What::Record:
            return record(request, shot);
        case Request::What::Value:
            return value(request, shot);
        case Request::What::Model: {
            Json head = headOf(request, shot);
            head["what"] = "model";
            return meshAnswer(std::move(head), shot.mesh ? *shot.mesh : meshOf(shot.record.as<Struct>()));
        }
        default:
            return nullptr;
    }
}

Answer answerNothing(const Request& request, const std::string& error)
{
    return envelope(
        {{"slot", request.slot}, {"step", request.step}, {"tuned", request.tuned}, {"error", error}});
}

}  // namespace scansteps::viewer

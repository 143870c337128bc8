// Step stex: gives each triangle of a model the best picture.
#include <scansteps/chain.h>
#include <scansteps/error.h>
#include <scansteps/frame.h>
#include <scansteps/step_factory.h>
#include <scansteps/vertex_lists.h>

#include <cstdio>
#include <optional>
#include <unordered_map>
#include <utility>

#include "picture_gains.h"
#include "step_frame.h"
#include "texture_choice.h"
#include "view_record.h"

namespace scansteps::scan {

class Stex final : public CPUBase
{
  public:
    const char* getName() override { return "Stex"; }
    void init(varitype& params) override;
    void process(varitype& params) override;

  private:
    std::optional<Camera> camera_;
    TextureLimits limits_;
    bool hasGains_ = true;
};

SCANSTEPS_FACTORY(stex, Stex)

namespace {

struct Pictures
{
    StructArray entries;
    std::vector<Pose> poses;
    std::vector<Picture> views;

    void apply(const GainField& gains, std::size_t n)
    {
        const auto rgb = entries[n]["data"].getv<Array>().elements<std::uint8_t>();
        applyGains(gains, views[n].width, rgb);
        views[n].rgb = rgb;
    }
};

Pictures picturesOf(const varitype& record, const Camera& camera)
{
    if (!record.has("images"))
        fail("stex: the record has no \"images\"; sfuse hands them on if all views have a picture");
    Pictures pictures;
    const varitype images = record["images"];
    for (const varitype& entry : images.as<StructArray>()) {
        const auto pose = poseOf(entry, "stex");
        if (!pose) failf("stex: \"images\": element %zu has no \"pose\"", pictures.poses.size());
        const varitype data = entry["data"];
        const Array& array = data.as<Array>();
        if (!array.hasShape(Kind::Uchar, std::uint32_t(3 * camera.size.x()), std::uint32_t(camera.size.y())))
            failf(
                "stex: \"images\": element %zu is an array of %u x %u x %u %s elements, but the camera has "
                "%d x %d pixels",
                pictures.poses.size(), array.dim(0), array.dim(1), array.dim(2), kindName(array.kind()),
                camera.size.x(), camera.size.y());
        pictures.poses.push_back(*pose);
        pictures.entries.push_back(entry);
        pictures.views.push_back({array.elements<std::uint8_t>(), camera.size.x(), camera.size.y()});
    }
    if (pictures.poses.empty()) fail("stex: \"images\" is empty");
    return pictures;
}

// A model whose vertices each lie in one picture.
struct SplitModel
{
    std::vector<float> vertices, normals, pixels;
    std::vector<std::int32_t> views;
    std::vector<std::uint32_t> indices;

    SplitModel(const TextureModel& model, std::span<const float> modelNormals,
               std::span<const Visibility> seen, std::span<const int> labels)
    {
        std::unordered_map<std::uint64_t, std::uint32_t> numbers;
        std::vector<std::int32_t> first(model.vertices.size() / 3, -1);  // the split vertex made first
        for (std::size_t i = 0; i < model.indices.size(); ++i) {
            const std::uint32_t vertex = model.indices[i];
            const bool isPlain = labels[i / 3] < 0;
            const auto view = isPlain ? std::int32_t(seen.size()) : labels[i / 3];
            const auto made = std::uint32_t(views.size());
            std::uint32_t number = made;
            if (first[vertex] < 0)
                first[vertex] = std::int32_t(made);
            else if (views[std::size_t(first[vertex])] == view)
                number = std::uint32_t(first[vertex]);
            else
                number = numbers.try_emplace(std::uint64_t(vertex) << 32 | std::uint32_t(view), made)
                             .first->second;
            indices.push_back(number);
            if (number != made) continue;
            views.push_back(view);
            for (std::size_t k = 0; k < 3; ++k) {
                vertices.push_back(model.vertices[3 * std::size_t(vertex) + k]);
                if (!modelNormals.empty()) normals.push_back(modelNormals[3 * std::size_t(vertex) + k]);
            }
            for (std::size_t k = 0; k < 2; ++k)
                pixels.push_back(isPlain ? kPlainSide / 2.0F
                                         : seen[std::size_t(view)].pixels[2 * std::size_t(vertex) + k]);
        }
    }

    static constexpr int kPlainSide = 8;  // pixels of the picture for triangles that no view sees
};

Array plainPicture(const std::array<std::uint8_t, 3>& colour)
{
    Array picture(Kind::Uchar, 3 * SplitModel::kPlainSide, SplitModel::kPlainSide);
    std::size_t i = 0;
    for (std::uint8_t& value : picture.elements<std::uint8_t>()) value = colour[i++ % 3];
    return picture;
}

}  // namespace

void Stex::init(varitype& params)
{
    const Settings settings(*this, params);
    camera_ = readCalibration(settings.text("stex.calibration")).camera;
    limits_ = {settings.real("stex.angle"), settings.integer("stex.contour"),
               settings.integer("stex.island")};
    hasGains_ = settings.integer("stex.gains") != 0;
    forward(*this, params);
}

void Stex::process(varitype& params)
{
    StepTimer timer(*this);
    if (!camera_) fail("stex: a model arrived before the settings");
    varitype record = copyRecord(params);
    const RecordMesh mesh(record, "stex");
    const TextureModel model{mesh.mesh.vertices, mesh.mesh.indices};
    Pictures pictures = picturesOf(record, *camera_);

    std::vector<Visibility> seen;
    for (const Pose& pose : pictures.poses) seen.push_back(visibilityOf(model, *camera_, pose, limits_));
    varitype tria = record["tria"];
    std::span<const std::int32_t> filled;
    if (tria.has("Filled")) filled = intList(tria, "Filled");
    if (filled.size() != model.indices.size() / 3) filled = {};
    avoidShade(model, filled, pictures.views, seen);
    const std::vector<int> labels = choosePictures(model, seen, limits_);
    const std::vector<GainField> gains =
        hasGains_ ? matchPictures(model, seen, pictures.views) : std::vector<GainField>();
    for (std::size_t i = 0; i < gains.size(); ++i) pictures.apply(gains[i], i);
    const Array plain = plainPicture(meanColour(model, seen, pictures.views, labels));

    const bool hasNormals =
        tria.has("Normals") && floatList(tria, "Normals", 3).size() == model.vertices.size();
    const SplitModel split(model, hasNormals ? floatList(tria, "Normals", 3) : std::span<const float>(), seen,
                           labels);
    const std::size_t vertices = split.views.size();
    std::size_t unseen = 0;
    for (const int label : labels) unseen += label < 0;
    std::printf("%15zu triangles without a picture\n%15zu vertices doubled at seams\n", unseen,
                vertices - model.vertices.size() / 3);
    for (std::size_t i = 0; i < gains.size(); ++i)
        std::printf("%15.3f mean gain of view %zu\n", double(gains[i].mean()), i + 1);
    if (unseen > 0) pictures.entries.push_back(Struct{{"data", plain}});
    tria.set("Vertices", arrayOf<float>(split.vertices, 3, vertices));
    if (hasNormals) tria.set("Normals", arrayOf<float>(split.normals, 3, vertices));
    tria.set("Pixels", arrayOf<float>(split.pixels, 2, vertices));
    tria.set("Views", arrayOf<std::int32_t>(split.views, 1, vertices));
    tria.set("Indices", arrayOf<std::uint32_t>(split.indices, 3, labels.size()));
    record.set("images", std::move(pictures.entries));
    timer.forward(record);
}

}  // namespace scansteps::scan

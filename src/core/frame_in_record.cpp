// Moves frames between handles and records.
#include "core/frame_in_record.h"

#include "scansteps/error.h"
#include "scansteps/host_services.h"
#include "scansteps/texture.h"

namespace scansteps {

void writeEvent(BIO& sink, const varitype& record)
{
    if (!record.has("handle")) return writeRecord(sink, record);
    if (record.has("data"))
        notifyHost(
            Trouble::FileFailed, "", "",
            "the record holds its frame twice, as \"handle\" and as \"data\"; put cstrip before this step");
    writeRecordWithFrame(sink, record, pixelsOf(record["handle"].as<std::int32_t>()));
}

void checkEmbeddedFrame(StepBase& step, const Array& array)
{
    if (elementSize(array.kind()) == 0)
        failf("%s: \"data\" holds elements of kind %s, no samples", step.getName(),
              kindTypeName(array.kind()));
}

void createFrameBuffer(StepBase& step, varitype& params, TextureSet& buffer)
{
    const int width = params["dataX"].as<std::int32_t>();
    const int height = params["dataY"].as<std::int32_t>();
    checkFrameSize(width, height);
    buffer.create(width, height, 1, formatOrMismatch(step, params, format::kF1x32));
}

}  // namespace scansteps

// Steps written in Python: each event acquires the interpreter lock and calls a method of the Python object.
#include "python_step.h"

#include <algorithm>
#include <deque>
#include <string>
#include <utility>

#include "record.h"
#include "scansteps/error.h"
#include "scansteps/frame.h"
#include "scansteps/handles.h"
#include "values.h"

namespace scansteps::python {

namespace {

// Facts about the Python classes that were used as steps. Pipelines refer to them, so they are never removed.
const StepInfo& infoOf(const py::object& self)
{
    struct Entry
    {
        std::string name;
        StepInfo info;
    };
    static std::deque<Entry> known;
    const std::string name = py::str(py::type::of(self).attr("__name__"));
    for (const Entry& entry : known)
        if (entry.name == name) return entry.info;
    Entry& entry = known.emplace_back(Entry{name, {}});
    entry.info.kind = entry.name.c_str();
    entry.info.className = entry.name.c_str();
    entry.info.typeIn = entry.info.typeOut = "ANY::ANY";
    entry.info.frames = {Pixels::Any, Pixels::Any};
    entry.info.summary = "a step written in Python";
    return entry.info;
}

// A Python object that chains hold, which are copied and freed without the interpreter lock.
using SharedObject = std::shared_ptr<py::object>;

SharedObject shared(const py::object& object)
{
    return SharedObject(new py::object(object), [](py::object* held) {
        const py::gil_scoped_acquire locked;
        delete held;
    });
}

class PythonStep final : public CPUBase
{
  public:
    PythonStep(SharedObject self, const StepInfo& info, std::shared_ptr<StepContext> context)
        : self_(std::move(self)), info_(info), context_(std::move(context))
    {
        typeIn = typeOut = info.typeIn;
    }
    ~PythonStep() override;

    const char* getName() override { return info_.className; }
    void init(varitype& params) override;
    void process(varitype& params) override;
    void flush(varitype& params) override;

  private:
    // What goes on to the next step; nothing when Python returned None.
    struct Result
    {
        varitype value;
        std::shared_ptr<FrameLease> frame;
        bool isDropped = false;
    };
    Result call(const char* method, varitype value, const std::shared_ptr<FrameLease>& frame);
    void placeFrame(varitype& record, FrameLease& frame);

    SharedObject self_;
    const StepInfo& info_;
    std::shared_ptr<StepContext> context_;
    std::uint32_t width_ = 0;
    int ownHandle_ = 0;  // for frames that Python adds to records without one
};

PythonStep::~PythonStep()
{
    if (ownHandle_ != 0) {
        delete static_cast<Array*>(handles::payload(ownHandle_));
        handles::release(ownHandle_);
    }
}

PythonStep::Result PythonStep::call(const char* method, varitype value,
                                    const std::shared_ptr<FrameLease>& frame)
{
    const py::gil_scoped_acquire locked;
    try {
        py::object record = py::cast(std::make_unique<Record>(std::move(value), frame, width_));
        py::object answer = self_->attr(method)(record);
        if (answer.is_none()) return {varitype(), nullptr, true};
        if (!py::isinstance<Record>(answer))
            throw py::type_error(std::string(info_.kind) + "." + method +
                                 " returns a Record or None, not a " + Py_TYPE(answer.ptr())->tp_name);
        auto& result = answer.cast<Record&>();
        return {copyRecord(result.value()), result.lease(), false};
    } catch (py::error_already_set& error) {
        static thread_local std::string text;
        const py::object type = error.type();
        text = std::string(py::str(type.attr("__name__"))) + ": " + std::string(py::str(error.value()));
        context_->thrown = std::current_exception();
        throw text.c_str();
    } catch (const std::exception& error) {
        static thread_local std::string text;
        text = error.what();
        throw text.c_str();
    }
}

void PythonStep::init(varitype& params)
{
    Result result = call("init", copyRecord(params), nullptr);
    varitype record = result.isDropped ? copyRecord(params) : std::move(result.value);
    const varitype* width = record.as<Struct>().find("dataX");
    width_ = width != nullptr && width->kind() == Kind::Int
                 ? std::uint32_t(std::max(width->as<std::int32_t>(), 0))
                 : 0;
    time = 0;
    forward(*this, record);
}

// The frame under the record's handle becomes what Python returned.
void PythonStep::placeFrame(varitype& record, FrameLease& frame)
{
    if (frame.isAttached()) return;
    if (!record.has("handle")) {
        if (ownHandle_ == 0) {
            ownHandle_ = handles::allocate();
            handles::setPayload(ownHandle_, new Array);
        }
        record.set("handle", ownHandle_);
    }
    pixelsOf(record["handle"].as<std::int32_t>()) = frame.pixels();
    record.remove("data");
}

void PythonStep::process(varitype& params)
{
    StepTimer timer(*this);
    std::shared_ptr<FrameLease> frame;
    if (params.has("handle"))
        frame = std::make_shared<FrameLease>(&pixelsOf(params["handle"].as<std::int32_t>()), context_->pool);
    Result result = [&] {
        try {
            return call("process", copyRecord(params), frame);
        } catch (...) {
            if (frame != nullptr && frame.use_count() > 1) frame->detach(true);
            throw;
        }
    }();
    const long ours = result.frame == frame ? 2 : 1;
    if (frame != nullptr && frame.use_count() > ours) {
        frame->detach(true);
        ++context_->copies;
    }
    if (result.frame != nullptr && result.frame != frame) placeFrame(result.value, *result.frame);
    result.frame.reset();
    frame.reset();
    if (result.isDropped)
        timer.stop();
    else
        timer.forward(result.value);
}

void PythonStep::flush(varitype& params)
{
    Result result = call("flush", copyRecord(params), nullptr);
    varitype record = result.isDropped ? copyRecord(params) : std::move(result.value);
    forward(*this, record);
}

}  // namespace

host::PipelineStep pythonStep(const py::object& self, std::shared_ptr<StepContext> context)
{
    host::PipelineStep step;
    step.info = &infoOf(self);
    const py::object name = py::getattr(self, "name", py::none());
    if (!name.is_none()) step.name = textFrom(name);
    step.create = [self = shared(self), info = step.info,
                   context = std::move(context)]() -> std::unique_ptr<cChain> {
        return std::make_unique<PythonStep>(self, *info, context);
    };
    return step;
}

}  // namespace scansteps::python

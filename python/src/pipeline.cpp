// The class Pipeline of the module: a chain that takes frames from Python or runs a source, and returns
// records.
#include "pipeline.h"

#include <pybind11/stl.h>

#include <cstdio>
#include <cstring>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

#include "errors.h"
#include "python_step.h"
#include "record.h"
#include "scansteps/host.h"
#include "scansteps/plugin.h"
#include "scansteps/texture.h"
#include "values.h"

namespace scansteps::python {

namespace {

using namespace scansteps::host;

// Handle tables are installed in whole modules: one chain works at a time. A Python step may run another
// pipeline, hence recursive.
std::recursive_mutex& chainMutex()
{
    static auto* const mutex = new std::recursive_mutex;
    return *mutex;
}

// For the length of one event: the interpreter lock is released, the chain has the modules to itself, and a
// table that another chain up the stack had installed comes back afterwards.
class Turn
{
  public:
    explicit Turn(const StepLibrary& library) : lock_(chainMutex()), library_(library)
    {
        if (running++ != 0) before_ = installedHandles();
    }
    ~Turn()
    {
        --running;
        if (before_ == nullptr || installedHandles() == before_) return;
        installHandles(before_);
        library_.setHandles(before_);
    }
    Turn(const Turn&) = delete;
    Turn& operator=(const Turn&) = delete;

  private:
    static inline int running = 0;  // turns up the stack, this one included

    py::gil_scoped_release released_;
    std::unique_lock<std::recursive_mutex> lock_;
    const StepLibrary& library_;
    HandleTable* before_ = nullptr;
};

// "dataFormat" of a frame with that many channels; nullptr where frames have no such form.
const char* formatOf(Kind kind, std::uint32_t channels)
{
    if (kind == Kind::Uchar && channels == 3) return "CPU::u_1x8";
    if (kind == Kind::Ushort && channels == 1) return "CPU::u_1x16";
    if (kind == Kind::Float && channels == 1) return "CPU::f_1x32";
    if (kind == Kind::Float && channels == 4) return "CPU::f_4x32";
    if (kind == Kind::Half && channels == 1) return "CPU::f_1x16";
    if (kind == Kind::Half && channels == 4) return "CPU::f_4x16";
    return nullptr;
}

py::array frameArray(const py::object& pixels)
{
    py::array array = py::module_::import("numpy").attr("asarray")(pixels);
    if (array.ndim() != 2 && array.ndim() != 3)
        raise("FormatError", "a frame is an array of (rows, columns) or (rows, columns, channels)");
    return array;
}

// Memory of a numpy array in the place of the chain's input frame for one event.
class BorrowedInput
{
  public:
    BorrowedInput(Array& input, const py::array& frame) : data_(const_cast<void*>(frame.data()))
    {
        own_ = std::move(input);
        input = Array::adopt(ArrayStorage(static_cast<std::byte*>(data_)), own_.kind(), own_.dim(0),
                             own_.dim(1), own_.dim(2));
    }
    // Steps have swapped frames: the memory is under some handle of the table.
    ~BorrowedInput()
    {
        for (SlotRecord* slot : installedHandles()->slots) {
            auto* const array = slot != nullptr ? static_cast<Array*>(slot->payload) : nullptr;
            if (array == nullptr || array->data() != data_) continue;
            static_cast<void>(array->takeStorage().release());
            *array = std::move(own_);
            return;
        }
    }
    BorrowedInput(const BorrowedInput&) = delete;
    BorrowedInput& operator=(const BorrowedInput&) = delete;

  private:
    void* data_;
    Array own_;
};

// A broken library in a folder of plug-ins is left out with a warning.
void warnOfPlugins(LogLevel level, const std::string& text)
{
    if (level == LogLevel::Info) return;
    const py::object category = py::module_::import("scansteps._errors").attr("PipelineWarning");
    if (PyErr_WarnEx(category.ptr(), text.c_str(), 1) != 0) throw py::error_already_set();
}

class PyPipeline
{
  public:
    PyPipeline(std::shared_ptr<StepLibrary> library, const py::list& steps, const py::dict& settings);
    ~PyPipeline();

    void set(const std::vector<std::string>& sets, const py::dict& values);
    void describe(const py::object& frame);
    py::list check(const std::string& types, bool force, bool strict);
    void initialise();
    std::unique_ptr<Record> call(const py::object& frame, const py::object& entries);
    std::unique_ptr<Record> next();
    void flush();
    void close();

    py::list steps() const;
    py::list troubles() const;
    py::list takeWarnings();
    std::unique_ptr<Record> initial() const;
    std::int64_t copies() const { return context_->copies; }
    std::int64_t frames() const { return frames_; }
    bool isInitialised() const { return initialised_; }
    bool hasSource() const { return pipeline_.steps.front().info->source; }
    std::int64_t limit() const { return pipeline_.frames; }
    void setLimit(std::int64_t frames) { pipeline_.frames = frames; }

  private:
    Chain& chain();
    void addSteps(const py::handle& part);
    template <class Work>
    auto event(Work work);
    [[noreturn]] void raiseStepError(const StepError& error);
    void moveOn();
    bool interrupted();
    void observe(std::size_t position, const varitype& record);
    std::unique_ptr<Record> passed(std::optional<varitype> record);
    bool mayBorrow(const py::array& frame) const;
    std::unique_ptr<Record> transform(varitype record, const py::array* frame);

    std::shared_ptr<StepLibrary> library_;
    std::shared_ptr<StepContext> context_ = std::make_shared<StepContext>();
    Pipeline pipeline_;
    std::unique_ptr<Chain> chain_;
    std::shared_ptr<FrameLease> last_;  // frame at the end of the chain that Python may hold
    std::optional<varitype> initial_;   // the initialise record as it reached the end
    std::uint32_t width_ = 0;           // pixels per row at the end
    std::vector<std::string> warnings_;
    std::exception_ptr signal_;  // raised by a signal handler during a wait
    std::thread::id thread_ = std::this_thread::get_id();
    std::int64_t frames_ = 0;
    bool initialised_ = false;
    bool forgets_ = false;  // no step reads a frame again after it has been processed
    bool ended_ = false;
    bool closed_ = false;
};

PyPipeline::PyPipeline(std::shared_ptr<StepLibrary> library, const py::list& steps, const py::dict& settings)
    : library_(std::move(library))
{
    asErrors([&] {
        for (const py::handle part : steps) addSteps(part);
        if (pipeline_.steps.empty()) throw UsageError("the pipeline has no steps");
        const Struct more = structFrom(settings, "");
        varitype merged{std::move(pipeline_.settings)};
        mergeSettings(merged, more);
        pipeline_.settings = merged.as<Struct>();
        checkSettings(pipeline_);
    });
    forgets_ = true;
    for (const PipelineStep& step : pipeline_.steps)
        forgets_ = forgets_ && (step.info->source || step.info->frames.isStateless || step.create);
}

PyPipeline::~PyPipeline()
{
    try {
        close();
    } catch (py::error_already_set& error) {
        error.discard_as_unraisable("closing a scansteps pipeline");
    } catch (...) {
    }
}

// Part of a pipeline: a description, the JSON of a whole pipeline, or a Python step.
void PyPipeline::addSteps(const py::handle& part)
{
    if (!py::isinstance<py::str>(part)) {
        pipeline_.steps.push_back(pythonStep(py::reinterpret_borrow<py::object>(part), context_));
        return;
    }
    const std::string text = textFrom(part);
    Pipeline read = text.starts_with("{") ? pipelineFromJson(text) : readPipeline(text);
    for (PipelineStep& step : read.steps) pipeline_.steps.push_back(std::move(step));
    varitype merged{std::move(pipeline_.settings)};
    mergeSettings(merged, read.settings);
    pipeline_.settings = merged.as<Struct>();
    if (read.frames != 0) pipeline_.frames = read.frames;
}

void PyPipeline::set(const std::vector<std::string>& sets, const py::dict& values)
{
    asErrors([&] {
        Pipeline changed = pipeline_;
        for (const std::string& assignment : sets) applySet(changed, assignment);
        varitype merged{std::move(changed.sets)};
        mergeSettings(merged, structFrom(values, ""));
        changed.sets = merged.as<Struct>();
        checkSettings(changed);
        pipeline_ = std::move(changed);
    });
    if (chain_ != nullptr) {
        chain_->pipeline().sets = pipeline_.sets;
        chain_->pipeline().steps = pipeline_.steps;
    }
}

py::list PyPipeline::check(const std::string& types, bool force, bool strict)
{
    const TypeCheck mode = types == "warn"  ? TypeCheck::Warn
                           : types == "off" ? TypeCheck::Off
                                            : TypeCheck::Error;
    py::list result;
    for (const Finding& finding : asErrors([&] { return checkPipeline(pipeline_, {mode, force, strict}); }))
        result.append(
            py::make_tuple(int(finding.code), textOf(finding.text),
                           finding.step ? py::object(py::int_(*finding.step)) : py::object(py::none())));
    return result;
}

Chain& PyPipeline::chain()
{
    if (closed_) raise("Error", "the pipeline is closed");
    if (chain_ == nullptr) {
        Hooks hooks;
        hooks.onWarning = [this](const std::string& text) { warnings_.push_back(text); };
        hooks.observe = [this](std::size_t position, const varitype& record) { observe(position, record); };
        hooks.interrupted = [this] { return interrupted(); };
        asErrors([&] {
            const Turn turn(*library_);
            chain_ = std::make_unique<Chain>(pipeline_, *library_, std::move(hooks));
        });
    }
    return *chain_;
}

// Waiting steps ask this now and then, on any thread. Only the main thread runs signal handlers.
bool PyPipeline::interrupted()
{
    const py::gil_scoped_acquire locked;
    if (signal_ != nullptr) return true;
    if (PyErr_CheckSignals() == 0) return false;
    try {
        throw py::error_already_set();
    } catch (...) {
        signal_ = std::current_exception();
    }
    return true;
}

void PyPipeline::observe(std::size_t position, const varitype& record)
{
    if (position != pipeline_.steps.size()) return;
    const varitype* type = record.as<Struct>().find("eventType");
    if (type == nullptr || type->kind() != Kind::Int || type->as<std::int32_t>() != event::kInit) return;
    initial_ = record.clone();
    const varitype* width = record.as<Struct>().find("dataX");
    width_ = width != nullptr && width->kind() == Kind::Int && width->as<std::int32_t>() > 0
                 ? std::uint32_t(width->as<std::int32_t>())
                 : 0;
}

void PyPipeline::raiseStepError(const StepError& error)
{
    if (signal_ != nullptr) std::rethrow_exception(std::exchange(signal_, nullptr));
    if (context_->thrown != nullptr) std::rethrow_exception(std::exchange(context_->thrown, nullptr));
    raise(error.code == kMisfit     ? "FormatError"
          : error.file.file.empty() ? "Error"
                                    : "FileError",
          error.what(), {stepLabel(pipeline_, error.step), error.kind, error.frame});
}

// Sends one event with the interpreter lock released.
template <class Work>
auto PyPipeline::event(Work work)
{
    context_->thrown = nullptr;
    moveOn();
    try {
        const Turn turn(*library_);
        struct Flusher
        {
            ~Flusher() { std::fflush(stdout); }  // steps print with the C library
        } flusher;
        return work();
    } catch (const StepError& error) {
        raiseStepError(error);
    }
}

// The chain is about to use the last frame's buffer again.
void PyPipeline::moveOn()
{
    if (last_ != nullptr && last_.use_count() > 1 && last_->isAttached()) {
        last_->detach(true);
        ++context_->copies;
    }
    last_.reset();
}

void PyPipeline::initialise()
{
    Chain& chain = this->chain();
    frames_ = 0;
    ended_ = false;
    event([&] { chain.initialise(); });
    initialised_ = true;
}

std::unique_ptr<Record> PyPipeline::passed(std::optional<varitype> record)
{
    if (!record) return nullptr;
    std::shared_ptr<FrameLease> frame;
    if (const varitype* handle = record->as<Struct>().find("handle"); handle != nullptr) {
        frame = std::make_shared<FrameLease>(&pixelsOf(handle->as<std::int32_t>()), context_->pool);
        if (forgets_)
            frame->detach(false);
        else
            last_ = frame;
    }
    return std::make_unique<Record>(std::move(*record), std::move(frame), width_);
}

// `frame` is C-contiguous and of the shape that the input has; null without an input.
std::unique_ptr<Record> PyPipeline::transform(varitype record, const py::array* frame)
{
    Chain& chain = this->chain();
    const bool borrow = frame != nullptr && mayBorrow(*frame);
    return event([&] {
        std::optional<BorrowedInput> borrowed;
        if (frame != nullptr) {
            Array& input = chain.input().writable();
            if (borrow)
                borrowed.emplace(input, *frame);
            else if (input.byteSize() != 0)
                std::memcpy(input.data(), frame->data(), input.byteSize());
        }
        std::optional<varitype> result = chain.transform(record);
        ended_ = eventType(record) == event::kFlush;
        if (!ended_) ++frames_;
        return passed(std::move(result));
    });
}

std::unique_ptr<Record> PyPipeline::next()
{
    if (!initialised_) initialise();
    while (!ended_ && (pipeline_.frames == 0 || frames_ < pipeline_.frames)) {
        if (PyErr_CheckSignals() != 0) throw py::error_already_set();
        if (auto record = transform(varitype{Struct{}}, nullptr)) return record;
    }
    return nullptr;
}

void PyPipeline::flush()
{
    if (chain_ == nullptr || !initialised_) return;
    initialised_ = false;
    Chain& chain = *chain_;
    event([&] { chain.flush(); });
}

void PyPipeline::close()
{
    if (std::exchange(closed_, true)) return;
    const auto end = [this] {
        const Turn turn(*library_);
        moveOn();
        chain_.reset();
    };
    try {
        flush();
    } catch (...) {
        end();
        throw;
    }
    end();
}

// Size and format of the frames, from the first one.
void PyPipeline::describe(const py::object& pixels)
{
    const py::array frame = frameArray(pixels);
    const auto channels = frame.ndim() == 3 ? frame.shape(2) : 1;
    const char* const format = formatOf(kindOfDtype(frame.dtype()), std::uint32_t(channels));
    if (format == nullptr)
        raise("FormatError",
              "frames are (h, w, 3) uint8, (h, w) uint16, float32 or float16, or (h, w, 4) float32 or "
              "float16; this is " +
                  py::str(frame.attr("shape")).cast<std::string>() + " " +
                  py::str(frame.dtype()).cast<std::string>());
    varitype settings{std::move(pipeline_.settings)};
    const auto setOnce = [&](const char* name, varitype value) {
        if (!settings.has(name)) settings.set(name, std::move(value));
    };
    setOnce("dataX", std::int32_t(frame.shape(1)));
    setOnce("dataY", std::int32_t(frame.shape(0)));
    setOnce("dataFormat", format);
    pipeline_.settings = settings.as<Struct>();
    if (chain_ != nullptr) chain_->pipeline().settings = pipeline_.settings;
}

// Whether the chain may read the array's own memory: the first step writes to another frame and no step reads
// an old frame again.
bool PyPipeline::mayBorrow(const py::array& frame) const
{
    constexpr std::uintptr_t kAlignment = 16;  // that of malloc
    return forgets_ && pipeline_.steps.front().info->frames.readsOnly && frame.nbytes() != 0 &&
           reinterpret_cast<std::uintptr_t>(frame.data()) % kAlignment == 0;
}

std::unique_ptr<Record> PyPipeline::call(const py::object& frame, const py::object& entries)
{
    varitype record{Struct{}};
    py::object pixels = frame;
    if (py::isinstance<Record>(frame)) {
        const auto& given = frame.cast<const Record&>();
        record = copyRecord(given.value());
        record.remove("handle");
        pixels = given.frame();
    }
    if (!entries.is_none()) mergeSettings(record, structFrom(entries, ""));
    if (hasSource())
        raise("Error", "the pipeline begins with a source, which makes its own frames: iterate over it");
    if (!initialised_) initialise();
    if (pixels.is_none()) return transform(std::move(record), nullptr);
    const py::array array = frameArray(pixels);
    Chain& chain = this->chain();
    const auto [isKnown, shape] = [&] {
        const Turn turn(*library_);
        TextureSet& input = chain.input();
        return std::pair(input.count() != 0, input.shape());
    }();
    if (!isKnown) raise("FormatError", "\"dataX\", \"dataY\" and \"dataFormat\" do not describe a frame");
    const auto channels = array.ndim() == 3 ? array.shape(2) : 1;
    const bool fits = kindOfDtype(array.dtype()) == shape.kind && array.shape(0) == py::ssize_t(shape.rows) &&
                      array.shape(1) * channels == py::ssize_t(shape.rowLength);
    if (!fits)
        raise("FormatError", "the frame is " + py::str(array.attr("shape")).cast<std::string>() + " " +
                                 py::str(array.dtype()).cast<std::string>() +
                                 ", the pipeline was initialised for " + std::to_string(shape.rows) +
                                 " rows of " + std::to_string(shape.rowLength) + " " +
                                 kindTypeName(shape.kind));
    const py::array contiguous = py::module_::import("numpy").attr("ascontiguousarray")(array);
    return transform(std::move(record), &contiguous);
}

py::list PyPipeline::steps() const
{
    py::list result;
    const std::vector<StepFacts> facts = chain_ != nullptr ? chain_->steps() : std::vector<StepFacts>();
    for (std::size_t i = 0; i < pipeline_.steps.size(); ++i) {
        const PipelineStep& step = pipeline_.steps[i];
        const bool timed = i < facts.size() && facts[i].seconds;
        result.append(
            py::make_tuple(step.info->kind, step.info->className, textOf(step.name),
                           timed ? py::object(py::float_(*facts[i].seconds)) : py::object(py::none())));
    }
    return result;
}

// (step, text, file, reason) of what steps survived.
py::list PyPipeline::troubles() const
{
    py::list result;
    if (chain_ == nullptr) return result;
    for (const TroubleFacts& trouble : chain_->troubles())
        result.append(py::make_tuple(stepLabel(pipeline_, trouble.step), textOf(troubleText(trouble))));
    return result;
}

py::list PyPipeline::takeWarnings()
{
    py::list result;
    for (const std::string& text : std::exchange(warnings_, {})) result.append(textOf(text));
    return result;
}

std::unique_ptr<Record> PyPipeline::initial() const
{
    return initial_ ? std::make_unique<Record>(initial_->clone()) : nullptr;
}

}  // namespace

void bindPipeline(py::module_& module)
{
    py::class_<StepLibrary, std::shared_ptr<StepLibrary>>(module, "Library")
        .def(py::init([](const std::string& path, const std::vector<std::string>& plugins) {
            return asErrors([&] { return std::make_shared<StepLibrary>(path, plugins, warnOfPlugins); });
        }));
    module.def("steps_json", [] { return stepsJson(stepTable()); });
    py::class_<PyPipeline>(module, "Pipeline")
        .def(py::init<std::shared_ptr<StepLibrary>, const py::list&, const py::dict&>())
        .def("set", &PyPipeline::set)
        .def("describe", &PyPipeline::describe)
        .def("check", &PyPipeline::check)
        .def("initialise", &PyPipeline::initialise)
        .def("call", &PyPipeline::call)
        .def("next", &PyPipeline::next)
        .def("flush", &PyPipeline::flush)
        .def("close", &PyPipeline::close)
        .def("steps", &PyPipeline::steps)
        .def("troubles", &PyPipeline::troubles)
        .def("take_warnings", &PyPipeline::takeWarnings)
        .def_property_readonly("initial", &PyPipeline::initial)
        .def_property_readonly("copies", &PyPipeline::copies)
        .def_property_readonly("frames", &PyPipeline::frames)
        .def_property_readonly("is_initialised", &PyPipeline::isInitialised)
        .def_property_readonly("has_source", &PyPipeline::hasSource)
        .def_property("limit", &PyPipeline::limit, &PyPipeline::setLimit);
}

}  // namespace scansteps::python

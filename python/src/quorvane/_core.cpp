#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>
#include <quorvane/quorvane.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

/*
 * The C functions of libquorvane for the Python package around it: arrays in and out by their
 * strides, codes as exceptions, results as plain objects. The package gives them their classes.
 */

namespace py = pybind11;

namespace {

using Clock = std::chrono::steady_clock;

/** Between two looks at Python while the interpreter is free for other threads. */
constexpr std::chrono::milliseconds kLookEvery{20};

/** A failed call: raised as quorvane.Error or one of its kinds by the package's function. */
[[noreturn]] void raise(int code, const std::string& sentence) {
    const py::object make = py::module_::import("quorvane._errors").attr("error_for");
    const py::object error = make(quorvane_error_name(code), sentence);
    PyErr_SetObject(reinterpret_cast<PyObject*>(Py_TYPE(error.ptr())), error.ptr());
    throw py::error_already_set();
}

int type_of(const py::dtype& dtype) {
    const bool is_native = dtype.attr("isnative").cast<bool>();
    const std::string name = py::str(dtype.attr("name"));
    if (is_native && name == "float32") {
        return QUORVANE_FLOAT32;
    }
    if (is_native && name == "float64") {
        return QUORVANE_FLOAT64;
    }
    if (is_native && name == "int16") {
        return QUORVANE_INT16;
    }
    if (is_native && name == "int32") {
        return QUORVANE_INT32;
    }
    raise(QUORVANE_UNSUPPORTED, "the array has the type " +
                                    std::string(py::str(dtype.attr("str"))) +
                                    ": use float32, float64, int16 or int32 in native byte order");
}

/** An array as the library reads it. Keeps a copy where strides of 0 repeat a sample. */
class Frames {
  public:
    Frames(const py::array& array, int rate_hz) : array_(array) {
        audio_.size = sizeof audio_;
        audio_.type = type_of(array.dtype());
        audio_.sample_rate_hz = rate_hz;
        if (array.ndim() != 1 && array.ndim() != 2) {
            raise(QUORVANE_BAD_ARGUMENT, "the array has " + std::to_string(array.ndim()) +
                                             " dimensions: use (frames,) or (frames, channels)");
        }
        if (repeats(array)) {
            array_ = py::array(py::module_::import("numpy").attr("ascontiguousarray")(array));
        }
        audio_.frames = static_cast<uint64_t>(array_.shape(0));
        audio_.samples = array_.size() > 0 ? array_.data() : nullptr;
        audio_.frame_stride = array_.strides(0);
        audio_.channels = 1;
        audio_.channel_stride = array_.itemsize();
        if (array_.ndim() == 2) {
            constexpr py::ssize_t kMost = 1 << 20;
            audio_.channels = static_cast<int>(std::min(array_.shape(1), kMost));
            audio_.channel_stride = array_.strides(1);
        }
    }

    const quorvane_audio& audio() const { return audio_; }

    /** A new array of the same type and shape. */
    py::array like() const {
        const std::vector<py::ssize_t> shape(array_.shape(), array_.shape() + array_.ndim());
        return py::array(array_.dtype(), shape);
    }

  private:
    static bool repeats(const py::array& array) {
        for (py::ssize_t i = 0; i < array.ndim(); ++i) {
            if (array.strides(i) == 0) {
                return true;
            }
        }
        return false;
    }

    py::array array_;
    quorvane_audio audio_{};
};

quorvane_buffer buffer_of(py::array& array) {
    quorvane_buffer buffer{};
    buffer.size = sizeof buffer;
    buffer.samples = array.mutable_data();
    return buffer;
}

/** What the package has checked the kinds of. */
struct Options {
    std::optional<std::string> target;
    bool plain = false;
    int measure = QUORVANE_MEASURE_DEFAULT;
    bool second_thread = false;
    bool replace = false;
    std::vector<std::string> tuning;
    std::uint64_t memory_bytes = 0;
    std::string scratch_folder;
    py::object progress = py::none();
};

/** A leveler of one Python object. Its calls free the interpreter for other threads. */
class Core {
  public:
    explicit Core(Options options) : options_(std::move(options)) {
        std::vector<const char*> tuning;
        for (const std::string& word : options_.tuning) {
            tuning.push_back(word.c_str());
        }
        quorvane_options given;
        quorvane_options_init(&given, sizeof given);
        given.target = options_.target ? options_.target->c_str() : nullptr;
        given.plain = options_.plain ? 1 : 0;
        given.measure = options_.measure;
        given.second_thread = options_.second_thread ? 1 : 0;
        given.replace = options_.replace ? 1 : 0;
        given.tuning = tuning.data();
        given.tuning_count = tuning.size();
        given.memory_bytes = options_.memory_bytes;
        given.scratch_folder =
            options_.scratch_folder.empty() ? nullptr : options_.scratch_folder.c_str();
        given.progress = on_progress;
        given.context = this;
        if (!handle_) {
            throw std::bad_alloc();
        }
        finish(quorvane_configure(handle_.get(), &given));
    }

    Core(const Core&) = delete;
    Core& operator=(const Core&) = delete;

    py::array level(const py::array& array, int rate_hz) {
        return with_result(array, rate_hz, quorvane_level);
    }

    py::array limit(const py::array& array, int rate_hz) {
        return with_result(array, rate_hz, quorvane_limit);
    }

    void measure(const py::array& array, int rate_hz) {
        const Frames frames(array, rate_hz);
        call([&] { return quorvane_measure(handle_.get(), &frames.audio()); });
    }

    /** The results, in the order of the tracks. */
    std::vector<py::array> level_together(const std::vector<py::array>& tracks, int rate_hz) {
        std::vector<Frames> frames;
        std::vector<py::array> results;
        std::vector<quorvane_audio> from;
        std::vector<quorvane_buffer> to;
        for (const py::array& track : tracks) {
            frames.emplace_back(track, rate_hz);
            results.push_back(frames.back().like());
            from.push_back(frames.back().audio());
            to.push_back(buffer_of(results.back()));
        }
        call([&] {
            return quorvane_level_together(handle_.get(), from.data(), to.data(), from.size());
        });
        return results;
    }

    /** Chooses the track whose results the functions below give. */
    void select_track(std::size_t index) { finish(quorvane_select_track(handle_.get(), index)); }

    void level_file(const std::string& input, const std::string& output) {
        call([&] { return quorvane_level_file(handle_.get(), input.c_str(), output.c_str()); });
    }

    void measure_file(const std::string& input) {
        call([&] { return quorvane_measure_file(handle_.get(), input.c_str()); });
    }

    void begin(const py::dtype& dtype, int rate_hz, int channels) {
        const int type = type_of(dtype);
        call([&] { return quorvane_begin(handle_.get(), type, rate_hz, channels); });
    }

    void write(const py::array& array, int rate_hz) {
        const Frames frames(array, rate_hz);
        call([&] { return quorvane_write(handle_.get(), &frames.audio()); });
    }

    void finish_frames() {
        call([&] { return quorvane_finish(handle_.get()); });
    }

    /** Fills the array from its start; returns the frames. */
    std::uint64_t read(py::array array) {
        const quorvane_buffer buffer = buffer_of(array);
        const auto frames = static_cast<uint64_t>(array.shape(0));
        uint64_t got = 0;
        call([&] { return quorvane_read(handle_.get(), &buffer, frames, &got); });
        return got;
    }

    void cancel() { quorvane_cancel(handle_.get()); }

    int outcome() const { return quorvane_get_outcome(handle_.get()); }

    std::string reason() const { return quorvane_reason(handle_.get()); }

    std::string verdict() const { return quorvane_verdict(handle_.get()); }

    std::string facts() const { return quorvane_facts_json(handle_.get()); }

    /** The fields of quorvane_loudness; None where it was not measured. */
    py::object loudness(int moment) {
        quorvane_loudness found{};
        found.size = sizeof found;
        if (quorvane_get_loudness(handle_.get(), moment, &found) != QUORVANE_OK) {
            return py::none();
        }
        return py::make_tuple(found.integrated_lufs, found.short_term_lufs, found.momentary_lufs,
                              found.range_lu, found.true_peak_dbtp, found.sample_peak_dbfs,
                              found.rms_dbfs, found.speech_lufs, found.speech_passages_db);
    }

    py::list findings() {
        py::list all;
        quorvane_finding found{};
        found.size = sizeof found;
        for (std::size_t i = 0; i < quorvane_finding_count(handle_.get()); ++i) {
            if (quorvane_get_finding(handle_.get(), i, &found) != QUORVANE_OK) {
                continue;
            }
            py::list places;
            for (std::size_t place = 0; place < found.place_count; ++place) {
                places.append(py::make_tuple(found.places[2 * place], found.places[2 * place + 1]));
            }
            all.append(py::make_tuple(found.code, found.severity, found.value, found.unit,
                                      found.detail, found.sentence, py::tuple(places)));
        }
        return all;
    }

    py::list passages() {
        py::list all;
        quorvane_passage found{};
        found.size = sizeof found;
        for (std::size_t i = 0; i < quorvane_passage_count(handle_.get()); ++i) {
            if (quorvane_get_passage(handle_.get(), i, &found) == QUORVANE_OK) {
                all.append(
                    py::make_tuple(found.begin_s, found.end_s, found.level_db, found.gain_db));
            }
        }
        return all;
    }

    py::tuple gain_curve() const {
        std::size_t count = 0;
        double step_s = 0;
        const double* const values = quorvane_gain_curve(handle_.get(), &count, &step_s);
        return py::make_tuple(step_s, py::array_t<double>(static_cast<py::ssize_t>(count), values));
    }

    std::vector<std::string> notes() const {
        std::vector<std::string> all;
        for (std::size_t i = 0; i < quorvane_note_count(handle_.get()); ++i) {
            all.emplace_back(quorvane_note(handle_.get(), i));
        }
        return all;
    }

  private:
    using Call = int (*)(quorvane_leveler*, const quorvane_audio*, const quorvane_buffer*);

    py::array with_result(const py::array& array, int rate_hz, Call function) {
        const Frames frames(array, rate_hz);
        py::array result = frames.like();
        const quorvane_buffer buffer = buffer_of(result);
        call([&] { return function(handle_.get(), &frames.audio(), &buffer); });
        return result;
    }

    template <class Work>
    void call(const Work& work) {
        int code = QUORVANE_OK;
        looked_ = Clock::now();
        {
            const py::gil_scoped_release free;
            code = work();
        }
        finish(code);
    }

    /** Raises what a callback has raised, or what the call reports. */
    void finish(int code) {
        if (raised_) {
            const auto raised = std::move(raised_);
            raised_.reset();
            throw py::error_already_set(*raised);
        }
        if (code != QUORVANE_OK) {
            raise(code, quorvane_last_error(handle_.get()));
        }
    }

    static int on_progress(void* context, double fraction) {
        Core& core = *static_cast<Core*>(context);
        // A call without a callback can be interrupted, too.
        const Clock::time_point now = Clock::now();
        if (core.options_.progress.is_none() && now - core.looked_ < kLookEvery) {
            return 0;
        }
        core.looked_ = now;
        const py::gil_scoped_acquire hold;
        try {
            if (PyErr_CheckSignals() != 0) {
                throw py::error_already_set();
            }
            if (!core.options_.progress.is_none()) {
                core.options_.progress(fraction);
            }
            return 0;
        } catch (const py::error_already_set& error) {
            core.raised_ = std::make_unique<py::error_already_set>(error);
            return 1;
        }
    }

    Options options_;
    std::unique_ptr<quorvane_leveler, void (*)(quorvane_leveler*)> handle_{quorvane_new(),
                                                                           quorvane_free};
    Clock::time_point looked_;
    std::unique_ptr<py::error_already_set> raised_;
};

std::unique_ptr<Core> make_core(std::optional<std::string> target,
                                bool plain,
                                int measure,
                                bool second_thread,
                                bool replace,
                                std::vector<std::string> tuning,
                                std::uint64_t memory_bytes,
                                std::string scratch_folder,
                                py::object progress) {
    return std::make_unique<Core>(Options{std::move(target), plain, measure, second_thread, replace,
                                          std::move(tuning), memory_bytes,
                                          std::move(scratch_folder), std::move(progress)});
}

}  // namespace

PYBIND11_MODULE(_core, module) {
    module.attr("version") = quorvane_version();
    py::class_<Core>(module, "Core")
        .def(py::init(&make_core), py::kw_only(), py::arg("target"), py::arg("plain"),
             py::arg("measure"), py::arg("second_thread"), py::arg("replace"), py::arg("tuning"),
             py::arg("memory_bytes"), py::arg("scratch_folder"), py::arg("progress"))
        .def("level", &Core::level)
        .def("level_together", &Core::level_together)
        .def("select_track", &Core::select_track)
        .def("limit", &Core::limit)
        .def("measure", &Core::measure)
        .def("level_file", &Core::level_file)
        .def("measure_file", &Core::measure_file)
        .def("begin", &Core::begin)
        .def("write", &Core::write)
        .def("finish", &Core::finish_frames)
        .def("read", &Core::read)
        .def("cancel", &Core::cancel)
        .def("outcome", &Core::outcome)
        .def("reason", &Core::reason)
        .def("verdict", &Core::verdict)
        .def("facts", &Core::facts)
        .def("loudness", &Core::loudness)
        .def("findings", &Core::findings)
        .def("passages", &Core::passages)
        .def("gain_curve", &Core::gain_curve)
        .def("notes", &Core::notes);
}

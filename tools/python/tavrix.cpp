// The Python module `tavrix`: trackers fed with numpy frames, and frame
// sequences read from disk into numpy arrays.

#include "base/Exception.h"
#include "image/ImageFile.h"
#include "tools/python/TrPyErrors.h"
#include "tools/python/TrPyFrames.h"
#include "tools/python/TrPyTracker.h"
#include "tools/track/TrTrackCommand.h"
#include "track/Sequence/TrDiskSequence.h"

#include <pybind11/numpy.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <cmath>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace py = pybind11;

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw IllegalArgumentException(dstring(what));
}

/// A tracker and the lock that keeps two Python threads out of it while
/// one of them runs without the interpreter's lock. Waiting for the lock
/// while holding the interpreter's could deadlock with a thread that wants
/// the interpreter's back, so a second thread is refused instead.
struct Tracker {
    TrPyTracker tracker;
    std::mutex busy;

    Tracker(int width, int height, const TrRunSettings& s) : tracker(width, height, s) {}
};

/// The tracker of `t`, held for the life of this object.
class Using {
public:
    explicit Using(Tracker& t) : tracker(t.tracker), lock(t.busy, std::try_to_lock) {
        if (!lock.owns_lock())
            refuse("the tracker is in use by another thread");
    }
    TrPyTracker* operator->() const { return &tracker; }
    TrPyTracker& operator*() const { return tracker; }

    std::string frameName(size_t k) const {
        return "frame " + std::to_string(tracker.getFrom() + tracker.getDirection() * int(k));
    }

private:
    TrPyTracker& tracker;
    std::unique_lock<std::mutex> lock;
};

// The frames of `frames`: a list or tuple of frames, or an N×H×W or
// N×H×W×C array. Each is checked before any is tracked.
std::vector<py::array> framesOf(const py::object& frames) {
    std::vector<py::array> out;
    if (py::isinstance<py::array>(frames)) {
        const auto all = py::reinterpret_borrow<py::array>(frames);
        if (all.ndim() != 3 && all.ndim() != 4)
            refuse("frames: an array of frames is N×H×W or N×H×W×C, got " +
                   std::to_string(all.ndim()) + " dimensions");
        for (py::ssize_t k = 0; k < all.shape(0); ++k)
            out.push_back(all[py::int_(k)].cast<py::array>());
        return out;
    }
    if (!py::isinstance<py::list>(frames) && !py::isinstance<py::tuple>(frames))
        refuse("frames: expected a list of arrays or an array of frames");
    for (const py::handle item : frames) {
        if (!py::isinstance<py::array>(item))
            refuse("frames: item " + std::to_string(out.size()) + " is not a numpy array");
        out.push_back(py::reinterpret_borrow<py::array>(item));
    }
    return out;
}

void step(Tracker& t, const py::array& frame) {
    const Using use(t);
    if (!use->isOpen())
        use->start(0, 1);
    const TrPyFrames::View view =
        TrPyFrames::describe(frame, use.frameName(size_t(use->getSteps())));
    py::gil_scoped_release unlocked;
    use->step(TrPyFrames::copy(view));
}

void track(Tracker& t, const py::object& frames, int start, bool backward) {
    const Using use(t);
    const std::vector<py::array> arrays = framesOf(frames);
    if (arrays.empty())
        refuse("frames: no frames given");
    use->start(start, backward ? -1 : 1);
    std::vector<TrPyFrames::View> views;
    try {
        for (size_t k = 0; k < arrays.size(); ++k)
            views.push_back(TrPyFrames::describe(arrays[k], use.frameName(k)));
    } catch (...) {
        use->finish();
        throw;
    }
    py::gil_scoped_release unlocked;
    try {
        for (const TrPyFrames::View& v : views)
            use->step(TrPyFrames::copy(v));
    } catch (...) {
        // The frames before the one refused keep their results.
        use->finish();
        throw;
    }
    use->finish();
}

// One value per track and final frame, `fill` where the track has none.
template <class T, class Get>
py::array_t<T> perSample(const TrPyTracker& t, int width, T fill, Get get) {
    const auto& results = t.getResults();
    const int frames = t.getFinalCount();
    std::vector<py::ssize_t> shape{py::ssize_t(results.size()), frames};
    if (width > 1)
        shape.push_back(width);
    py::array_t<T> out(shape);
    T* data = out.mutable_data();
    std::fill(data, data + out.size(), fill);
    const size_t w = size_t(width);
    for (size_t i = 0; i < results.size(); ++i)
        for (const TrSample& s : results[i].samples) {
            const int k = (s.frame - t.getFrom()) * t.getDirection();
            if (k >= 0 && k < frames)
                get(s, data + (i * size_t(frames) + size_t(k)) * w);
        }
    return out;
}

py::array_t<double> transforms(const TrPyTracker& t) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    return perSample<double>(t, 6, none, [](const TrSample& s, double* out) {
        const AffineTransform& a = s.transform;
        for (const float v : {a.tx, a.ty, a.ro, a.sc, a.st0, a.st1})
            *out++ = v;
    });
}

py::array_t<int64_t> finalFrames(const TrPyTracker& t) {
    py::array_t<int64_t> out(t.getFinalCount());
    for (int k = 0; k < t.getFinalCount(); ++k)
        out.mutable_at(k) = t.getFrom() + t.getDirection() * k;
    return out;
}

template <class T, class Get> py::array_t<T> perTrack(const TrPyTracker& t, Get get) {
    const auto& results = t.getResults();
    py::array_t<T> out(py::ssize_t(results.size()));
    for (size_t i = 0; i < results.size(); ++i)
        out.mutable_at(py::ssize_t(i)) = get(results[i]);
    return out;
}

std::string describeImage(const Orvane::Image& img) {
    const Orvane::Format& f = img.getFormat();
    const int channels = f.getNumChannels();
    return std::to_string(img.getBounds().w) + "x" + std::to_string(img.getBounds().h) + ", " +
           std::to_string(channels) + (channels == 1 ? " channel of " : " channels of ") +
           Orvane::datatypeString(f.getDatatype()).str();
}

// Frames `first` to `last` (backward when last < first), decoded without the
// interpreter's lock and without the image cache, which is not shared
// between threads.
std::vector<Orvane::Image> readFrames(const TrDiskSequence& seq, int first, int last) {
    const int direction = last >= first ? 1 : -1;
    std::vector<Orvane::Image> frames;
    for (int f = first; f != last + direction; f += direction) {
        const dstring path = seq.getFramePath(float(f));
        frames.push_back(Orvane::readImage(path));
        const Orvane::Image& a = frames.front();
        const Orvane::Image& b = frames.back();
        if (b.getBounds() != a.getBounds() || !(b.getFormat() == a.getFormat()))
            refuse("\"" + path.str() + "\" is " + describeImage(b) + ", unlike frame " +
                   std::to_string(first) + " (" + describeImage(a) + ")");
    }
    return frames;
}

py::array readSequence(const std::string& pattern, std::optional<int> first,
                       std::optional<int> last) {
    const Orvane::SmartPtr<TrDiskSequence> opened = openFrameSequence(pattern);
    TrDiskSequence& seq = *opened;
    const int from = first.value_or(seq.getFirstFrame());
    const int to = last.value_or(seq.getLastFrame());
    for (const int f : {from, to})
        if (f < seq.getFirstFrame() || f > seq.getLastFrame())
            throw BadIndexException(dstring(
                "frame " + std::to_string(f) + " lies outside the sequence's frames " +
                std::to_string(seq.getFirstFrame()) + " to " + std::to_string(seq.getLastFrame())));
    std::vector<Orvane::Image> frames;
    {
        py::gil_scoped_release unlocked;
        frames = readFrames(seq, from, to);
    }
    const Orvane::Image& one = frames.front();
    const py::ssize_t n = py::ssize_t(frames.size()), h = one.getBounds().h, w = one.getBounds().w,
                      c = one.getFormat().getNumChannels();
    py::array out(TrPyFrames::dtypeOf(one.getFormat().getDatatype()), {n, h, w, c});
    auto* data = static_cast<unsigned char*>(out.mutable_data());
    const size_t bytes = size_t(h) * size_t(w) * one.getFormat().getBytesPerPixel();
    py::gil_scoped_release unlocked;
    for (size_t k = 0; k < frames.size(); ++k)
        TrPyFrames::copyInto(frames[k], data + k * bytes);
    return out;
}

void writeImage(const std::string& path, const py::array& image) {
    const TrPyFrames::View view = TrPyFrames::describe(image, "image", true);
    py::gil_scoped_release unlocked;
    Orvane::saveToFile(dstring(path), TrPyFrames::copy(view));
}

// As the tool has it: robust turns on the driver's robust options, precise
// sums and scale, unless the caller says otherwise of the last two.
TrRunSettings settingsOf(double tolerance, const std::string& behavior, bool robust, bool rotate,
                         std::optional<bool> scale, bool stretch, std::optional<bool> preciseSums) {
    TrRunSettings s;
    s.tolerance = tolerance;
    s.behavior = behavior;
    s.robust = robust;
    s.rotate = rotate;
    s.scale = scale.value_or(robust);
    s.stretch = stretch;
    s.preciseSums = preciseSums.value_or(robust);
    return s;
}

int addTrack(Tracker& t, double x, double y, std::pair<int, int> pattern,
             std::pair<int, int> search, const std::string& colorMode, const std::string& name) {
    TrTrackSpec s;
    s.name = name;
    s.x = x;
    s.y = y;
    s.patternWidth = pattern.first;
    s.patternHeight = pattern.second;
    s.searchWidth = search.first;
    s.searchHeight = search.second;
    s.colorMode = colorMode;
    return Using(t)->addTrack(s);
}

// The status words by track and final frame, as the tool writes them.
py::array statuses(const TrPyTracker& t) {
    const auto& results = t.getResults();
    const int frames = t.getFinalCount();
    std::vector<std::vector<std::string>> table(results.size(),
                                                std::vector<std::string>(size_t(frames)));
    const auto column = [&](int frame) { return (frame - t.getFrom()) * t.getDirection(); };
    for (size_t i = 0; i < results.size(); ++i) {
        for (const TrSample& s : results[i].samples)
            if (column(s.frame) >= 0 && column(s.frame) < frames)
                table[i][size_t(column(s.frame))] = statusName(s.status);
        const int k = column(results[i].lostAt);
        if (results[i].lost && k >= 0 && k < frames)
            table[i][size_t(k)] = "lost";
    }
    using namespace py::literals;
    const py::array out = py::module_::import("numpy").attr("array")(table, "dtype"_a = "U7");
    return out.attr("reshape")(py::ssize_t(results.size()), frames).cast<py::array>();
}

void defineTracking(py::class_<Tracker>& c) {
    using namespace py::literals;
    c.def(py::init([](int width, int height, double tolerance, const std::string& behavior,
                      bool robust, bool rotate, std::optional<bool> scale, bool stretch,
                      std::optional<bool> preciseSums) {
              return std::make_unique<Tracker>(
                  width, height,
                  settingsOf(tolerance, behavior, robust, rotate, scale, stretch, preciseSums));
          }),
          "width"_a, "height"_a, py::kw_only(), "tolerance"_a = 0.8, "behavior"_a = "default",
          "robust"_a = true, "rotate"_a = true, "scale"_a = py::none(), "stretch"_a = false,
          "precise_sums"_a = py::none(),
          "A tracker of width × height frames. `tolerance` is the score below which a match\n"
          "fails (-1 to 1); `behavior` what a track then does: default, stop, predict,\n"
          "predictAndKey, dontPredict or useExistingCurve. `robust` (the default, as in\n"
          "tavrix-track) takes the tracker's robust options and does not start a pattern\n"
          "with too little texture; False is the designed tracker. rotate, scale and\n"
          "stretch free those parts of the pattern's shape; precise_sums takes\n"
          "double-precision window sums, for bright, low-contrast footage. scale and\n"
          "precise_sums follow `robust` unless given.");
    c.def("add_track", addTrack, "x"_a, "y"_a, py::kw_only(), "pattern"_a = std::make_pair(21, 21),
          "search"_a = std::make_pair(61, 61), "color_mode"_a = "luminance", "name"_a = "",
          "Adds a track at pixel (x, y), origin top-left, pixel centres at +0.5, with its\n"
          "pattern and search sizes (width, height) and colour mode (red, green, blue,\n"
          "luminance, saturation, hue). Returns its index.");
    c.def("track", track, "frames"_a, "start"_a = 0, "backward"_a = false,
          "Tracks every track over `frames` (a list of H×W or H×W×C arrays, or an N×H×W or\n"
          "N×H×W×C array of uint8, uint16 or float32, C 1, 3 or 4), numbered from `start`,\n"
          "down from it when `backward`. Runs a whole pass: the results are final.");
    c.def(
        "start",
        [](Tracker& t, int first, bool backward) { Using(t)->start(first, backward ? -1 : 1); },
        "first"_a = 0, "backward"_a = false,
        "Opens a pass for step(), its first frame numbered `first`; forgets the last results.");
    c.def("step", step, "frame"_a,
          "Tracks into the next frame of the open pass (opening one at frame 0 when none is\n"
          "open). A frame's results appear once no later step can change them: two frames\n"
          "behind while tracks go on, all of them after finish().");
    c.def(
        "finish", [](Tracker& t) { Using(t)->finish(); },
        "Ends the pass: every frame stepped is final.");
}

void defineResults(py::class_<Tracker>& c) {
    const double none = std::numeric_limits<double>::quiet_NaN();
    c.def_property_readonly(
        "frames", [](Tracker& t) { return finalFrames(*Using(t)); },
        "Numbers of the frames whose results are final, in pass order: the columns below.");
    c.def_property_readonly(
        "positions",
        [none](Tracker& t) {
            return perSample<double>(*Using(t), 2, none, [](const TrSample& s, double* out) {
                out[0] = s.x;
                out[1] = s.y;
            });
        },
        "tracks × frames × 2: x, y in pixels; NaN where the track has no result.");
    c.def_property_readonly(
        "scores",
        [none](Tracker& t) {
            return perSample<double>(*Using(t), 1, none,
                                     [](const TrSample& s, double* out) { *out = s.score; });
        },
        "tracks × frames: match score, normalised cross-correlation; NaN where none.");
    c.def_property_readonly(
        "transforms", [](Tracker& t) { return transforms(*Using(t)); },
        "tracks × frames × 6: tx, ty (pixels), ro (radians), sc, st0, st1; NaN where none.");
    c.def_property_readonly(
        "keyed",
        [](Tracker& t) {
            return perSample<bool>(*Using(t), 1, false,
                                   [](const TrSample& s, bool* out) { *out = s.keyed; });
        },
        "tracks × frames: whether the result was keyed into the track's curve.");
    c.def_property_readonly(
        "status", [](Tracker& t) { return statuses(*Using(t)); },
        "tracks × frames: 'tracked' where the match held, 'coasted' where the failure\n"
        "behaviour carried the track on, 'lost' at the frame it was lost at, '' elsewhere.");
    c.def_property_readonly(
        "tracked",
        [](Tracker& t) {
            return perSample<bool>(*Using(t), 1, false,
                                   [](const TrSample&, bool* out) { *out = true; });
        },
        "tracks × frames: whether the track has a result at the frame.");
    c.def_property_readonly(
        "lost",
        [](Tracker& t) {
            return perTrack<bool>(*Using(t), [](const TrTrackResult& r) { return r.lost; });
        },
        "One per track: whether the tracker stopped it or it left the frame.");
    c.def_property_readonly(
        "lost_at",
        [](Tracker& t) {
            return perTrack<int64_t>(*Using(t),
                                     [](const TrTrackResult& r) { return int64_t(r.lostAt); });
        },
        "One per track: the frame it was lost at; meaningful where `lost` is set.");
    c.def_property_readonly(
        "lost_reasons",
        [](Tracker& t) {
            const Using use(t);
            std::vector<std::string> out;
            for (const TrTrackResult& r : use->getResults())
                out.push_back(r.reason);
            return out;
        },
        "One per track: why it was lost, as tavrix-track reports it: the tracker's\n"
        "reason, the library's text when an error ended it, or 'left the frame'; empty\n"
        "when it was not lost.");
}

void defineTracker(py::module_& m) {
    py::class_<Tracker> c(m, "Tracker");
    defineTracking(c);
    defineResults(c);
    c.def_property_readonly("width", [](Tracker& t) { return t.tracker.getWidth(); });
    c.def_property_readonly("height", [](Tracker& t) { return t.tracker.getHeight(); });
    c.def_property_readonly("names", [](Tracker& t) {
        const Using use(t);
        std::vector<std::string> out;
        for (const TrTrackSpec& s : use->getSpecs())
            out.push_back(s.name);
        return out;
    });
    c.def_property_readonly("is_open", [](Tracker& t) { return Using(t)->isOpen(); });
}

} // namespace

PYBIND11_MODULE(tavrix, m) {
    using namespace py::literals;
    m.doc() = "Feature tracking on numpy frames: normalised cross-correlation with a sub-pixel\n"
              "peak, refined by an affine fit. Library errors raise tavrix.Error and its\n"
              "subclasses, with the library's texts.";
    TrPyErrors::define(m);
    defineTracker(m);
    m.def("read_sequence", readSequence, "pattern"_a, "first"_a = py::none(), "last"_a = py::none(),
          "Frames `first` to `last` (default: all; backward when last < first) of the\n"
          "numbered files `pattern` names, '#' standing for the digits, as an N×H×W×C array\n"
          "of the files' sample type.");
    m.def("write_image", writeImage, "path"_a, "image"_a,
          "Writes an H×W or H×W×C array (C 1 to 4) to an image file of the format the\n"
          "extension names: .png, .tif, .exr, .jpg.");
}

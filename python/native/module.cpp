/* orvel._native: contexts and sessions for Python. Every call into the library releases the GIL. */
#include <nanobind/nanobind.h>
#include <nanobind/ndarray.h>
#include <nanobind/stl/function.h>
#include <nanobind/stl/shared_ptr.h>
#include <nanobind/stl/string.h>
#include <nanobind/stl/vector.h>

#include "sessions.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace orvel::python {
namespace {

using Samples = nb::ndarray<const float, nb::ndim<1>, nb::c_contig, nb::device::cpu>;
using Room = nb::ndarray<float, nb::ndim<1>, nb::c_contig, nb::device::cpu>;
using Released = nb::call_guard<nb::gil_scoped_release>;

Context::Handler withGil(nb::callable handler) {
  return [handler = std::move(handler)](int severity, const char* text) {
    const nb::gil_scoped_acquire gil;
    handler(severity, nb::bytes(text));
  };
}

nb::tuple modelOf(const Context& context, const std::string& name) {
  const OrvModelInfo info = context.model(name);
  return nb::make_tuple(info.kind, info.version, info.sampleRate, info.frameLength, info.hop,
                        info.latency, info.weights);
}

nb::tuple statisticsOf(Session& session) {
  const OrvSessionStatistics counts = session.statistics();
  return nb::make_tuple(counts.frames, counts.failedFrames, counts.stateResets);
}

void cleanArrays(const std::vector<Cleaner*>& sessions, const std::vector<Samples>& inputs,
                 const std::vector<Room>& outputs) {
  std::vector<std::span<const float>> sources;
  std::vector<std::span<float>> targets;
  for (const Samples& input : inputs)
    sources.emplace_back(input.data(), input.size());
  for (const Room& output : outputs)
    targets.emplace_back(output.data(), output.size());
  const nb::gil_scoped_release released;
  clean(sessions, sources, targets);
}

}  // namespace

NB_MODULE(_native, module) {
  // The shipped models stay loaded until the process ends.
  nb::set_leak_warnings(false);
  nb::exception<Refused>(module, "OrvelError", PyExc_RuntimeError).doc() =
      "The library refused a call; the message is its reason.";

  module.def("has_library_inside", &hasLibraryInside);
  nb::class_<Context>(module, "Context")
      .def(
          "__init__",
          [](Context* place, const std::string& library, nb::bytes models, nb::callable handler) {
            new (place) Context(library, models.c_str(), withGil(std::move(handler)));
          },
          "library"_a, "models"_a, "handler"_a)
      .def(
          "load",
          [](Context& context, nb::bytes control, const std::string& name) {
            const std::string path(control.c_str());
            const nb::gil_scoped_release released;
            context.load(path, name);
          },
          "control"_a, "name"_a)
      .def(
          "load_bytes",
          [](Context& context, nb::bytes control, nb::bytes weights, const std::string& name) {
            const std::string text(control.c_str(), control.size());
            const std::span<const char> content(weights.c_str(), weights.size());
            const nb::gil_scoped_release released;
            context.loadBytes(text, content, name);
          },
          "control"_a, "weights"_a, "name"_a)
      .def("model", &modelOf, "name"_a)
      .def("version", [](const Context& c) { return c.functions().Orv_SDK_GetVersion(); })
      .def("close", &Context::close, Released());

  nb::class_<Session>(module, "Session")
      .def_prop_ro("frame", &Session::frame)
      .def("statistics", &statisticsOf)
      .def("close", &Session::close, Released());
  nb::class_<Cleaner, Session>(module, "Cleaner")
      .def(nb::init<std::shared_ptr<Context>, int, int, int, const std::string&>(), "context"_a,
           "rate"_a, "output_rate"_a, "frame_ms"_a, "model"_a, Released())
      .def_prop_ro("output_frame", &Cleaner::outputFrame)
      .def_prop_ro("latency", &Cleaner::latency)
      .def("limit", &Cleaner::limit, "decibels"_a)
      .def("reset", &Cleaner::reset, Released());
  nb::class_<Detector, Session>(module, "Detector")
      .def(nb::init<std::shared_ptr<Context>, int, int, const std::string&>(), "context"_a,
           "rate"_a, "frame_ms"_a, "model"_a, Released())
      .def(
          "process",
          [](Detector& session, const Samples& input, const Room& scores) {
            const nb::gil_scoped_release released;
            session.process({input.data(), input.size()}, {scores.data(), scores.size()});
          },
          "input"_a, "scores"_a)
      .def("reset", &Detector::reset, Released());
  module.def("clean", &cleanArrays, "sessions"_a, "inputs"_a, "outputs"_a);
}

}  // namespace orvel::python

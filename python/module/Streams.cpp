#include "module/Streams.h"

#include "Lib/SharedImageSet.h"
#include "Stream/ImageStream.h"
#include "module/FrameQueue.h"
#include "module/Gil.h"
#include "module/Log.h"
#include "module/PropertiesDict.h"

#include <fmt/format.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <cmath>
#include <future>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace Kelvaris::Python {
namespace {

using Clock = std::chrono::steady_clock;

const char* nameOf(Stream::State state) {
  switch (state) {
  case Stream::State::Closed:
    return "closed";
  case Stream::State::Open:
    return "open";
  case Stream::State::Running:
    return "running";
  case Stream::State::Paused:
    break;
  }
  return "paused";
}

/// Gives the command and waits for it, with Ctrl-C at hand. Throws RuntimeError with the logged reason where it was not
/// carried out.
void command(Stream& stream, const char* name, std::shared_future<bool> (Stream::*give)()) {
  const LoggedReasons reasons(true);
  const auto done = withoutGil([&] { return (stream.*give)(); });
  while (withoutGil([&] { return done.wait_for(std::chrono::milliseconds(50)); }) != std::future_status::ready)
    if (PyErr_CheckSignals() != 0) throw py::error_already_set();
  if (!done.get())
    throw std::runtime_error(fmt::format("The stream \"{}\" can't {} while it is {}: {}", stream.name(), name,
                                         nameOf(stream.state()), reasons.text()));
}

/// One emission, as Python sees it.
struct Frame {
  std::shared_ptr<SharedImageSet> images; ///< a set of its own, the images shared
  std::uint64_t timestampDevice, timestampArrival;
};

Frame frameOf(const StreamData& data) {
  Frame frame{nullptr, data.timestampDevice(), data.timestampArrival()};
  if (const auto* images = dynamic_cast<const ImageStreamData*>(&data)) frame.images = images->images()->clone(4);
  return frame;
}

class Frames {
public:
  Frames(std::shared_ptr<Stream> stream, int capacity, std::optional<double> timeout)
      : m_timeout(timeout),
        m_queue(withoutGil([&] { return std::make_unique<FrameQueue>(std::move(stream), capacity); })) {}
  ~Frames() {
    const GilReleased released;
    m_queue.reset();
  }
  Frames(const Frames&) = delete;
  Frames& operator=(const Frames&) = delete;

  Frame next() {
    const auto end =
        m_timeout
            ? Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(*m_timeout))
            : Clock::time_point::max();
    while (true) {
      std::shared_ptr<const StreamData> data;
      std::optional<Frame> frame;
      const auto waited = withoutGil([&] {
        const auto result = m_queue->take(data, std::min(end, Clock::now() + std::chrono::milliseconds(50)));
        if (data) frame = frameOf(*data);
        data.reset();
        return result;
      });
      if (frame) return *std::move(frame);
      if (waited == FrameQueue::Wait::Ended) throw py::stop_iteration();
      if (PyErr_CheckSignals() != 0) throw py::error_already_set();
      if (Clock::now() >= end) {
        PyErr_SetString(PyExc_TimeoutError, fmt::format("No frame came within {} s", *m_timeout).c_str());
        throw py::error_already_set();
      }
    }
  }
  void close() {
    withoutGil([&] { m_queue->close(); });
  }
  std::size_t dropped() const { return m_queue->dropped(); }

private:
  std::optional<double> m_timeout;
  std::unique_ptr<FrameQueue> m_queue;
};

/// Streams that Python has been given, for the end of Python: what is lost in cycles or held by threads is never
/// destroyed, and must not go on when the plugin that it came from has gone. Under the GIL.
std::vector<std::weak_ptr<Stream>>& givenStreams() {
  static std::vector<std::weak_ptr<Stream>> streams;
  return streams;
}

void closeGivenStreams() {
  for (const auto& weak : std::exchange(givenStreams(), {}))
    withoutGil([&] {
      if (const auto stream = weak.lock()) stream->closeAsync().wait();
    });
}

std::unique_ptr<Frames> framesOf(std::shared_ptr<Stream> stream, int capacity, std::optional<double> timeout) {
  if (timeout && !(*timeout >= 0.0 && *timeout < 1e9))
    throw py::value_error(fmt::format("A timeout of {} s; expected None, or 0 and above", *timeout));
  return std::make_unique<Frames>(std::move(stream), capacity, timeout);
}

} // namespace

void closeAtExit(const std::shared_ptr<Data>& data) {
  const auto stream = std::dynamic_pointer_cast<Stream>(data);
  if (!stream) return;
  std::erase_if(givenStreams(), [](const auto& given) { return given.expired(); });
  givenStreams().push_back(stream);
}

void bindStreams(py::module_& module) {
  py::module_::import("atexit").attr("register")(py::cpp_function(closeGivenStreams));
  py::class_<Frame>(module, "Frame", "One emission of a stream.")
      .def_readonly("images", &Frame::images, "A SharedImageSet; None where a stream emits something else")
      .def_readonly("timestamp_device", &Frame::timestampDevice, "When the device took the data, in ms")
      .def_readonly("timestamp_arrival", &Frame::timestampArrival, "When they arrived here, in ms");

  py::class_<Frames>(module, "Frames",
                     "An iterator over what a stream emits, from its making on. Ends when the stream stops or closes,\n"
                     "and when close() is called; leaving a with statement closes it.")
      .def("__iter__", [](const py::object& self) { return self; })
      .def("__next__", &Frames::next)
      .def("__enter__", [](const py::object& self) { return self; })
      .def("__exit__", [](Frames& frames, const py::args&) { frames.close(); })
      .def("close", &Frames::close, "Lets go of the stream and ends the iteration, from any thread.")
      .def_property_readonly("dropped", &Frames::dropped,
                             "Frames that went unseen because the queue was full; always the oldest go");

  py::class_<Stream, Data, std::shared_ptr<Stream>>(
      module, "Stream",
      "A live source of data with a thread of its own.\n\n"
      "open(), close(), start(), stop(), pause() and resume() return when the command has been carried out, and raise\n"
      "RuntimeError with the reason where the state doesn't allow it.")
      .def_property_readonly(
          "state", [](const Stream& stream) { return nameOf(stream.state()); },
          "\"closed\", \"open\", \"running\" or \"paused\"")
      .def_property_readonly("uuid", &Stream::uuid, "Names the source across sessions")
      .def_property_readonly("supports_pausing", &Stream::supportsPausing)
      .def("open", [](Stream& stream) { command(stream, "open", &Stream::openAsync); })
      .def("close", [](Stream& stream) { command(stream, "close", &Stream::closeAsync); })
      .def("start", [](Stream& stream) { command(stream, "start", &Stream::startAsync); })
      .def("stop", [](Stream& stream) { command(stream, "stop", &Stream::stopAsync); })
      .def("pause", [](Stream& stream) { command(stream, "pause", &Stream::pauseAsync); })
      .def("resume", [](Stream& stream) { command(stream, "resume", &Stream::resumeAsync); })
      .def_property(
          "configuration",
          [](const Stream& stream) {
            Properties properties;
            withoutGil([&] { stream.configuration(&properties); });
            return dictOf(properties);
          },
          [](Stream& stream, const py::dict& values) {
            const Properties properties = propertiesOf(values);
            const LoggedReasons reasons;
            withoutGil([&] { stream.configure(&properties); });
            if (reasons.anyError())
              throw py::value_error(fmt::format("The stream \"{}\": {}", stream.name(), reasons.text()));
          },
          "The settings as a dict; assign some to change them, also while it runs. Raises ValueError with the\n"
          "logged reason for settings that are refused.")
      .def("frames", framesOf, py::arg("capacity") = 4, py::kw_only(), py::arg("timeout") = py::none(),
           "What the stream emits from now on, as an iterator of Frame. Up to `capacity` frames wait for a slower\n"
           "consumer, then the oldest are dropped. With a timeout (s), TimeoutError is raised if none comes for so "
           "long.")
      .def(
          "__iter__", [](const std::shared_ptr<Stream>& stream) { return framesOf(stream, 4, std::nullopt); },
          "frames()")
      .def("__repr__", [](const Stream& stream) {
        return fmt::format("<kelvaris.{} \"{}\", {}>",
                           dynamic_cast<const ImageStream*>(&stream) ? "ImageStream" : "Stream", stream.name(),
                           nameOf(stream.state()));
      });
  py::class_<ImageStream, Stream, std::shared_ptr<ImageStream>>(module, "ImageStream",
                                                                "A stream whose frames are images.")
      .def_property_readonly("size", &ImageStream::size, "Images a frame")
      .def_property_readonly("top_down", &ImageStream::topDown, "True if row 0 of the images is the top");
}

} // namespace Kelvaris::Python

#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

namespace Kelvaris {

class SharedImage;

/// How images get to where the GPU reads them. The libraries of its interfaces register one way each when they are
/// loaded; this library knows none itself. Thread-safe.
class GpuForms {
public:
  struct Way {
    const char* name;
    int rank; ///< of those that work on this machine, the one of the lowest rank is used
    std::function<bool()> isAvailable;
    std::function<void(const SharedImage&)> make; ///< gives the image the form, unless it has it; throws why it can't
  };

  /// A file-local static of a library: the way counts while it lives.
  class Registration {
  public:
    explicit Registration(Way way);
    ~Registration();
    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

  private:
    const char* m_name;
  };

  static GpuForms& get();

  /// Gives the image the GPU's form. Where there is no GPU, and for images of which it can't hold the like, nothing
  /// happens: whoever needs the form will say so.
  void make(const SharedImage& image) const;

private:
  mutable std::mutex m_mutex;
  std::vector<Way> m_ways; ///< by rank
};

} // namespace Kelvaris

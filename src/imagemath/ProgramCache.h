#pragma once

#include "GL/ImageProgram.h"

#include <cstddef>
#include <list>
#include <memory>
#include <mutex>
#include <string>

namespace Kelvaris::ImageMath::internal {

/// The programs that expressions have been evaluated with, by their text: those used last, up to a limit. A program is
/// used by one thread at a time, so two threads that evaluate the same formula have one each. May be called from any
/// thread; get() needs a current OpenGL context.
class ProgramCache {
public:
  /// Puts the program back at its end.
  class Lease {
  public:
    Lease(ProgramCache& cache, std::string text, std::unique_ptr<GL::ImageProgram> program)
        : m_cache(&cache), m_text(std::move(text)), m_program(std::move(program)) {}
    Lease(Lease&&) = default;
    Lease& operator=(Lease&&) = delete;
    ~Lease();
    GL::ImageProgram* get() const { return m_program.get(); }

  private:
    ProgramCache* m_cache;
    std::string m_text;
    std::unique_ptr<GL::ImageProgram> m_program;
  };

  /// The process's own.
  static ProgramCache& shared();

  explicit ProgramCache(std::size_t limit) : m_limit(limit) {}

  /// Holds null if the text can't be compiled; the log says why when it is tried, which is once as long as the text is
  /// among those used last.
  Lease get(const std::string& text);
  /// Texts that have been compiled, or tried to be, so far.
  std::size_t compilations() const;

private:
  struct Entry {
    std::string text;
    std::unique_ptr<GL::ImageProgram> program; ///< null for a text that can't be compiled
  };
  void put(std::string text, std::unique_ptr<GL::ImageProgram> program);

  const std::size_t m_limit;
  mutable std::mutex m_mutex;
  std::list<Entry> m_idle; ///< the one used last is first
  std::size_t m_compilations = 0;
};

} // namespace Kelvaris::ImageMath::internal

#pragma once

namespace Kelvaris::GL {

/// A mark in the work of one context that a thread with another one can wait for, so that it sees textures finished
/// which are still being drawn.
///
/// The producer makes the object behind the work in question and calls GL::flush(), without which the mark may never
/// be reached; then it hands the object over, along with the textures. The object may end on any thread, with or
/// without a context.
class SyncObject {
public:
  /// Marks the end of what was issued so far in the calling thread's context. Throws GL::Error if there is none.
  SyncObject();
  ~SyncObject();
  SyncObject(const SyncObject&) = delete;
  SyncObject& operator=(const SyncObject&) = delete;

  /// Returns when all work before the mark is complete. May be called on any thread, and again. Throws GL::Error.
  void wait() const;

private:
  void* m_fence; ///< a GLsync
};

} // namespace Kelvaris::GL

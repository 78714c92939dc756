#pragma once

#include <mutex>

namespace Kelvaris::GL {

/// A way around a fault of Mesa's software rasteriser (seen with 22.3.6, llvmpipe): whoever moves pixels into or out of
/// a texture looks, without a lock, through what the other contexts of the process are about to draw, and crashes where
/// one of them draws, flushes or lets go of something meanwhile. So calls that do any of this hold this lock, and come
/// one after the other. Other drivers keep their own contexts apart, and there the lock does nothing.
///
/// Needs a current context; a guard that provides it is taken before. Nests. Never held while a thread waits for
/// another one's work (SyncObject::wait()).
class DriverLock {
public:
  DriverLock();

private:
  std::unique_lock<std::recursive_mutex> m_lock;
};

} // namespace Kelvaris::GL

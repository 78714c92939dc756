#pragma once

#include "Lib/Hdf5.h"

namespace Kelvaris::Hdf5 {

/// HDF5 can't close a file that it couldn't write: handles and memory stay, and the library fails once more at the end
/// of the process. A file opened with this driver therefore never tells HDF5 of a failed write. It keeps the first
/// error, drops all writes from then on, and leaves it to the owner to ask for it.
class OutputState {
public:
  int error() const { return m_error; }
  void setError(int error) {
    if (m_error == 0) m_error = error;
  }
  /// Throws std::runtime_error("Can't write: No space left on device") after a failure.
  void check() const;

private:
  int m_error = 0; ///< errno of the first failure
};

/// File access properties for H5Fcreate with this driver. `state` must outlive the file.
Handle outputAccess(OutputState& state);

} // namespace Kelvaris::Hdf5

#pragma once

#include "Lib/SampleFile.h"

/// The formats behind SampleFile::open, one source file each.
namespace Kelvaris {

bool isHdf5File(const std::filesystem::path& path);

/// Any HDF5 file, or with `matlab` a MATLAB file of version 7.3: variables are then named and shaped as MATLAB shows
/// them (HDF5 lists the extents in reverse) and MATLAB's own groups are left out.
std::unique_ptr<SampleFile> openHdf5SampleFile(const std::filesystem::path& path, bool matlab);
/// MATLAB version 5. A variable is read as a whole, since it may be compressed as a whole.
std::unique_ptr<SampleFile> openMatlabFile(const std::filesystem::path& path);
/// NumPy's .npy; its one variable is called "array".
std::unique_ptr<SampleFile> openNumpyFile(const std::filesystem::path& path);

/// Fixed-size samples behind a header, in either byte order; see openRawSamples.
std::unique_ptr<SampleArray> openBinarySamples(const std::filesystem::path& path, SampleType type,
                                               SampleArray::Extents shape, bool firstIndexFastest,
                                               std::size_t headerBytes, bool bigEndian);

} // namespace Kelvaris

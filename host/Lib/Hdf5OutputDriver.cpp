#include "Lib/Hdf5OutputDriver.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kelvaris::Hdf5 {
namespace {

/// HDF5 fills the base, which its C interface wants in front.
struct OutputFile : H5FD_t {
  int file = -1;
  haddr_t allocated = 0; ///< end of what HDF5 has given out
  haddr_t written = 0;   ///< end of what stands in the file
  OutputState* state = nullptr;
};

/// The property list holds this by value.
struct Access {
  OutputState* state;
};

OutputFile& self(H5FD_t* file) {
  return *static_cast<OutputFile*>(file);
}
const OutputFile& self(const H5FD_t* file) {
  return *static_cast<const OutputFile*>(file);
}

H5FD_t* open(const char* name, unsigned, hid_t access, haddr_t) {
  const auto* info = static_cast<const Access*>(H5Pget_driver_info(access));
  const int file = ::open(name, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) {
    info->state->setError(errno);
    return nullptr;
  }
  auto output = std::make_unique<OutputFile>();
  output->file = file;
  output->state = info->state;
  return output.release(); // owned by HDF5 until close()
}

herr_t close(H5FD_t* file) {
  const std::unique_ptr<OutputFile> output(&self(file));
  if (::close(output->file) != 0) output->state->setError(errno);
  return 0;
}

herr_t query(const H5FD_t*, unsigned long* flags) {
  if (flags)
    *flags = H5FD_FEAT_AGGREGATE_METADATA | H5FD_FEAT_ACCUMULATE_METADATA | H5FD_FEAT_DATA_SIEVE |
             H5FD_FEAT_AGGREGATE_SMALLDATA | H5FD_FEAT_DEFAULT_VFD_COMPATIBLE;
  return 0;
}

haddr_t allocatedEnd(const H5FD_t* file, H5FD_mem_t) {
  return self(file).allocated;
}

herr_t setAllocatedEnd(H5FD_t* file, H5FD_mem_t, haddr_t address) {
  self(file).allocated = address;
  return 0;
}

haddr_t writtenEnd(const H5FD_t* file, H5FD_mem_t) {
  return self(file).written;
}

/// What was never written reads as zeros.
herr_t read(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, size_t size, void* buffer) {
  auto* bytes = static_cast<char*>(buffer);
  while (size > 0) {
    const ssize_t got = pread(self(file).file, bytes, size, static_cast<off_t>(address));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return -1;
    if (got == 0) {
      std::memset(bytes, 0, size);
      return 0;
    }
    bytes += got;
    address += static_cast<haddr_t>(got);
    size -= static_cast<size_t>(got);
  }
  return 0;
}

herr_t write(H5FD_t* file, H5FD_mem_t, hid_t, haddr_t address, size_t size, const void* buffer) {
  OutputFile& output = self(file);
  const auto* bytes = static_cast<const char*>(buffer);
  while (size > 0 && output.state->error() == 0) {
    const ssize_t put = pwrite(output.file, bytes, size, static_cast<off_t>(address));
    if (put < 0 && errno == EINTR) continue;
    if (put < 0) {
      output.state->setError(errno);
      break;
    }
    bytes += put;
    address += static_cast<haddr_t>(put);
    size -= static_cast<size_t>(put);
  }
  output.written = std::max(output.written, address + size);
  return 0;
}

herr_t truncate(H5FD_t* file, hid_t, hbool_t) {
  OutputFile& output = self(file);
  if (output.allocated == output.written) return 0;
  if (output.state->error() == 0 && ftruncate(output.file, static_cast<off_t>(output.allocated)) != 0)
    output.state->setError(errno);
  output.written = output.allocated;
  return 0;
}

H5FD_class_t driverClass() {
  H5FD_class_t driver{};
  driver.name = "kelvaris-output";
  driver.maxaddr = (haddr_t(1) << 63) - 1;
  driver.fc_degree = H5F_CLOSE_WEAK;
  driver.fapl_size = sizeof(Access);
  driver.open = open;
  driver.close = close;
  driver.query = query;
  driver.get_eoa = allocatedEnd;
  driver.set_eoa = setAllocatedEnd;
  driver.get_eof = writtenEnd;
  driver.read = read;
  driver.write = write;
  driver.truncate = truncate;
  std::fill(std::begin(driver.fl_map), std::end(driver.fl_map), H5FD_MEM_DEFAULT);
  return driver;
}

} // namespace

void OutputState::check() const {
  if (m_error != 0) throw std::runtime_error(fmt::format("Can't write: {}", std::strerror(m_error)));
}

Handle outputAccess(OutputState& state) {
  static const H5FD_class_t driver = driverClass();
  Handle access = fileAccess();
  const Handle id = checked(Handle(H5FDregister(&driver), H5FDunregister), "register the output driver");
  const Access info{&state};
  check(H5Pset_driver(access, id, &info), "prepare the file");
  return access;
}

} // namespace Kelvaris::Hdf5

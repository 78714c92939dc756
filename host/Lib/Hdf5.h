#pragma once

#include <hdf5.h>

#include <string>
#include <utility>
#include <vector>

/// What the project needs of HDF5's C interface: owned handles, errors as exceptions instead of prints, attributes.
namespace Kelvaris::Hdf5 {

/// Owns an HDF5 id and closes it with the function that belongs to its kind. Converts to the id.
class Handle {
public:
  Handle() = default;
  Handle(hid_t id, herr_t (*closeFunction)(hid_t)) : m_id(id), m_close(closeFunction) {}
  Handle(Handle&& other) noexcept : m_id(std::exchange(other.m_id, H5I_INVALID_HID)), m_close(other.m_close) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(m_id, other.m_id);
    std::swap(m_close, other.m_close);
    return *this;
  }
  ~Handle() { close(); }

  /// False if the closing failed, as it does where buffered data can't be written any more.
  bool close() { return m_id < 0 || m_close(std::exchange(m_id, H5I_INVALID_HID)) >= 0; }
  bool isValid() const { return m_id >= 0; }
  operator hid_t() const { return m_id; } // NOLINT(google-explicit-constructor): goes wherever an id goes

private:
  hid_t m_id = H5I_INVALID_HID;
  herr_t (*m_close)(hid_t) = nullptr;
};

/// While it lives, HDF5 prints no error stack on this thread.
class QuietErrors {
public:
  QuietErrors();
  ~QuietErrors();
  QuietErrors(const QuietErrors&) = delete;
  QuietErrors& operator=(const QuietErrors&) = delete;

private:
  H5E_auto2_t m_function = nullptr;
  void* m_data = nullptr;
};

/// The innermost reason of this thread's last HDF5 error in words, for example "No space left on device".
std::string lastError();

/// `handle`, or std::runtime_error("Can't <action>: <last error>") where it is invalid.
Handle checked(Handle handle, const std::string& action);
/// The same for a status.
void check(herr_t status, const std::string& action);

/// New access properties under which a file keeps little of its metadata in memory, and none of closed datasets,
/// however many images it holds.
Handle fileAccess();

/// Opens a file for reading. Throws std::runtime_error with the path in the message for a file that is missing,
/// truncated or no HDF5 file.
Handle openFile(const std::string& path);

/// The extent of a dataset, or of an attribute's space, outermost dimension first.
std::vector<hsize_t> extent(hid_t space);

/// Throws std::runtime_error if the pixels that `dataset` declares (`bytes` in memory) can't come from what the file
/// holds, which shows a damaged or a malicious file before memory is taken.
void checkStorage(hid_t dataset, std::size_t bytes);

bool hasAttribute(hid_t object, const char* name);
/// Reads a text of fixed or variable length. Throws std::runtime_error if the attribute is missing or no text.
std::string readText(hid_t object, const char* name);
/// Reads one integer, boolean or enumeration value of any width.
long long readInteger(hid_t object, const char* name);
/// Reads `count` numbers of any type.
std::vector<double> readDoubles(hid_t object, const char* name, std::size_t count);

/// Variable-length UTF-8.
void writeText(hid_t object, const char* name, const std::string& text);
void writeInteger(hid_t object, const char* name, int value);
/// A scalar for one value, else a list.
void writeDoubles(hid_t object, const char* name, const std::vector<double>& values);

} // namespace Kelvaris::Hdf5

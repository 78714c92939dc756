#include "Lib/SampleFile.h"

#include "Lib/Hdf5.h"
#include "support/ErrorOf.h"
#include "support/TemporaryFolder.h"

#include <matio.h>

#include <numeric>

namespace Kelvaris {
namespace {

namespace fs = std::filesystem;
using Tests::errorOf;
using Extents = SampleArray::Extents;

class SampleFileTest : public ::testing::Test {
protected:
  fs::path write(const std::string& name, const std::string& bytes) const {
    Tests::writeFile(m_folder / name, bytes);
    return m_folder / name;
  }

  /// A file with "rf" = 0, 1, 2 ... of MATLAB shape (4, 3, 2), "iq" complex and "exp_data" with the fields "tx" and
  /// "note".
  fs::path writeMatlab(mat_ft version, matio_compression compression) const {
    const fs::path path = m_folder / "recording.mat";
    mat_t* file = Mat_CreateVer(path.c_str(), nullptr, version);
    std::size_t dims[3] = {4, 3, 2}, pair[2] = {1, 5}, one[2] = {1, 1};
    const auto add = [&](matvar_t* variable) {
      EXPECT_EQ(Mat_VarWrite(file, variable, compression), 0);
      Mat_VarFree(variable);
    };
    std::vector<std::int16_t> rf(24);
    std::iota(rf.begin(), rf.end(), std::int16_t{0});
    add(Mat_VarCreate("rf", MAT_C_INT16, MAT_T_INT16, 3, dims, rf.data(), 0));
    double re[5] = {}, im[5] = {};
    mat_complex_split_t split{re, im};
    add(Mat_VarCreate("iq", MAT_C_DOUBLE, MAT_T_DOUBLE, 2, pair, &split, MAT_F_COMPLEX));
    const char* fields[2] = {"tx", "note"};
    matvar_t* record = Mat_VarCreateStruct("exp_data", 2, one, fields, 2);
    std::uint8_t tx[5] = {1, 1, 2, 2, 3};
    Mat_VarSetStructFieldByName(record, "tx", 0, Mat_VarCreate(nullptr, MAT_C_UINT8, MAT_T_UINT8, 2, pair, tx, 0));
    char text[] = "notch";
    Mat_VarSetStructFieldByName(record, "note", 0, Mat_VarCreate(nullptr, MAT_C_CHAR, MAT_T_UTF8, 2, pair, text, 0));
    add(record);
    Mat_Close(file);
    return path;
  }

  fs::path writeHdf5() const {
    const fs::path path = m_folder / "recording.h5";
    const Hdf5::Handle file(H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT), H5Fclose);
    const Hdf5::Handle group(H5Gcreate2(file, "scan", H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT), H5Gclose);
    const hsize_t dims[3] = {2, 3, 4};
    const Hdf5::Handle space(H5Screate_simple(3, dims, nullptr), H5Sclose);
    const Hdf5::Handle data(H5Dcreate2(group, "rf", H5T_STD_I16BE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT),
                            H5Dclose);
    std::vector<int> rf(24);
    std::iota(rf.begin(), rf.end(), 0);
    H5Dwrite(data, H5T_NATIVE_INT, H5S_ALL, H5S_ALL, H5P_DEFAULT, rf.data());
    return path;
  }

  static std::string numpy(const std::string& header, const std::string& data) {
    return std::string("\x93NUMPY\x01\x00", 8) + static_cast<char>(header.size()) + '\0' + header + data;
  }

  Tests::TemporaryFolder m_folder;
};

std::vector<double> box(const SampleArray& array, const Extents& start, const Extents& count) {
  const auto bytes = array.read(start, count);
  return dispatchSampleType(array.type(), [&]<typename T>() {
    const auto* samples = reinterpret_cast<const T*>(bytes.data());
    return std::vector<double>(samples, samples + bytes.size() / sizeof(T));
  });
}

/// 0, 1, 2 ... lie in storage order.
void expectBoxes(const SampleArray& array) {
  const Extents& shape = array.shape();
  ASSERT_EQ(shape.size(), 3u);
  const std::size_t middle = 1, fast = array.firstIndexFastest() ? 0 : 2, slow = 2 - fast;
  for (const auto& [start, count] : std::vector<std::pair<Extents, Extents>>{
           {{0, 0, 0}, shape}, {{0, 1, 0}, {shape[0], 2, 1}}, {{1, 1, 1}, {1, 2, 1}}}) {
    std::vector<double> expected;
    for (std::size_t i = start[slow]; i < start[slow] + count[slow]; ++i)
      for (std::size_t j = start[middle]; j < start[middle] + count[middle]; ++j)
        for (std::size_t k = start[fast]; k < start[fast] + count[fast]; ++k)
          expected.push_back(static_cast<double>((i * shape[middle] + j) * shape[fast] + k));
    EXPECT_EQ(box(array, start, count), expected) << shapeText(start) << " " << shapeText(count);
  }
  EXPECT_THROW(array.read({0, 0, 1}, shape), std::out_of_range);
  EXPECT_THROW(array.read({0, SIZE_MAX, 0}, {1, 2, 1}), std::out_of_range);
}

TEST_F(SampleFileTest, ReadsBoxesOfEveryFormat) {
  std::string raw, bigEndian;
  for (char i = 0; i < 24; ++i) {
    raw += {i, '\0'};
    bigEndian += {'\0', i};
  }
  const std::string numpyHead = "{'descr': '<i2', 'fortran_order': False, 'shape': (2, 3, 4), }";
  const std::string numpyFortran = "{'descr': '>i2', 'fortran_order': True, 'shape': (4, 3, 2), }";
  const std::tuple<fs::path, const char*, bool> cases[] = {
      {writeHdf5(), "", false},
      {m_folder / "recording.h5", "/scan/rf", false},
      {write("c.npy", numpy(numpyHead, raw)), "", false},
      {write("f.npy", numpy(numpyFortran, bigEndian)), "array", true}};
  for (const auto& [path, variable, firstFastest] : cases) {
    SCOPED_TRACE(path);
    const auto array = SampleFile::open(path)->array(variable);
    EXPECT_EQ(array->shape(), (firstFastest ? Extents{4, 3, 2} : Extents{2, 3, 4}));
    EXPECT_EQ(array->type(), SampleType::Int16);
    EXPECT_EQ(array->firstIndexFastest(), firstFastest);
    expectBoxes(*array);
  }
  expectBoxes(*openRawSamples(write("c.raw", raw), SampleType::Int16, {2, 3, 4}, false));
  expectBoxes(*openRawSamples(write("h.raw", "head" + raw), SampleType::Int16, {4, 3, 2}, true, 4));
}

TEST_F(SampleFileTest, ReadsMatlabVariablesAndFields) {
  for (const auto& [version, compression] : {std::pair{MAT_FT_MAT5, MAT_COMPRESSION_NONE},
                                             {MAT_FT_MAT5, MAT_COMPRESSION_ZLIB},
                                             {MAT_FT_MAT73, MAT_COMPRESSION_NONE}}) {
    SCOPED_TRACE(version);
    const fs::path path = writeMatlab(version, compression);
    const auto file = SampleFile::open(path);
    const auto rf = file->array("rf");
    EXPECT_EQ(rf->shape(), (Extents{4, 3, 2}));
    expectBoxes(*rf);
    EXPECT_EQ(file->array("exp_data.tx")->readAll(), (std::vector<double>{1, 1, 2, 2, 3}));
    for (const auto& [name, what] : {std::pair{"iq", "complex"},
                                     {"exp_data.note", "array of real numbers"},
                                     {"RF", "no variable \"RF\""},
                                     {"", "several variables"}}) {
      const std::string message = errorOf([&, variable = name] { file->array(variable); });
      EXPECT_CONTAINS(message, what);
      EXPECT_CONTAINS(message, "recording.mat");
      EXPECT_CONTAINS(message, "rf  int16 (4, 3, 2)");
    }
  }
}

TEST_F(SampleFileTest, RefusesBrokenAndForeignFilesInWords) {
  const auto cut = [](const fs::path& path, std::uintmax_t bytes) {
    fs::resize_file(path, bytes);
    return path;
  };
  const auto errorOfOpening = [](const fs::path& path, const char* variable = "") {
    return errorOf([&] { SampleFile::open(path)->array(variable); });
  };
  const auto errorOfNumpy = [&](const std::string& typeAndShape) {
    return errorOfOpening(write("array.npy", numpy("{'fortran_order': False, " + typeAndShape, std::string(40, 'x'))));
  };
  const fs::path text = write("text.txt", std::string(263, 'x')); // longer than any header that is looked at
  const Extents tooLarge = {7, 5};
  const std::pair<std::string, const char*> cases[] = {
      {errorOfOpening("/nowhere/x.mat"), "There is no file /nowhere/x.mat"},
      {errorOfOpening(text), "raw binary samples need their shape and type"},
      {errorOfOpening(write("empty.mat", "")), "is no HDF5, MATLAB"},
      {errorOfNumpy("'descr': '<f8', 'shape': (2, 3)"), "truncated"},
      {errorOfNumpy("'descr': '<f8', 'shape': (9000000000, 9000000000, 9)"), "larger than any memory"},
      {errorOfNumpy("'descr': '<f8', 'shape': (1500000000, 1000000000)"), "larger than any memory"},
      {errorOfNumpy("'descr': '<c8', 'shape': (2, 3)"), "'<c8'"},
      {errorOfOpening(write("head.npy", numpy("{'descr'", ""))), "NumPy header"},
      {errorOfOpening(cut(writeHdf5(), 1500)), "recording.h5"},
      {errorOf([&] { openRawSamples(text, SampleType::Int16, tooLarge, false); }), "take 70"},
      {errorOf([&] { sampleTypeFromName("int17"); }), "\"int17\" is no sample type; there are int8"},
  };
  for (const auto& [message, part] : cases)
    EXPECT_CONTAINS(message, part);

  for (const auto compression : {MAT_COMPRESSION_NONE, MAT_COMPRESSION_ZLIB})
    for (const std::uintmax_t bytes : {230, 170, 128})
      EXPECT_CONTAINS(errorOfOpening(cut(writeMatlab(MAT_FT_MAT5, compression), bytes), "rf"), "recording.mat");
}

} // namespace
} // namespace Kelvaris

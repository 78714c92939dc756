#pragma once

#include <png.h>

#include <cstdio>
#include <filesystem>
#include <vector>

namespace Kelvaris::Tests {

/// A picture as libpng reads it.
struct PngPicture {
  int width = 0, height = 0, channels = 0;
  int colorType = 0;
  bool hasDensity = false;
  png_uint_32 densityX = 0, densityY = 0; ///< pixels per metre
  std::vector<unsigned char> samples;

  unsigned char at(int x, int y, int channel = 0) const {
    return samples[static_cast<std::size_t>((y * width + x) * channels + channel)];
  }
};

inline PngPicture readPng(const std::filesystem::path& path) {
  PngPicture picture;
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (!file) throw std::runtime_error("no picture " + path.string());
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file);
  png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
  picture.width = static_cast<int>(png_get_image_width(png, info));
  picture.height = static_cast<int>(png_get_image_height(png, info));
  picture.channels = png_get_channels(png, info);
  picture.colorType = png_get_color_type(png, info);
  int unit = 0;
  picture.hasDensity = png_get_pHYs(png, info, &picture.densityX, &picture.densityY, &unit) != 0;
  for (int y = 0; y < picture.height; ++y)
    picture.samples.insert(picture.samples.end(), png_get_rows(png, info)[y],
                           png_get_rows(png, info)[y] + png_get_rowbytes(png, info));
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(file);
  return picture;
}

} // namespace Kelvaris::Tests

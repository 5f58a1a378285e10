// Comparing what a window shows with a picture of it that is kept. Plain functions; any thread.
#pragma once

#include <QColor>
#include <QImage>
#include <QRgb>
#include <algorithm>
#include <cstdlib>

namespace zunto::testing {

/// Where two pictures of one size differ.
struct PictureDifference {
  int pixels = 0;  ///< how many differ by more than any rounding does
  QImage picture;  ///< these in red on a pale copy of the first one
};

/// Pictures of different sizes differ everywhere.
[[nodiscard]] inline PictureDifference differenceOf(const QImage& seen, const QImage& kept) {
  constexpr int rounding = 12;  // of the 255 steps of a colour's part
  const auto isFar = [](QRgb one, QRgb other) {
    return std::max({std::abs(qRed(one) - qRed(other)), std::abs(qGreen(one) - qGreen(other)),
                     std::abs(qBlue(one) - qBlue(other))}) > rounding;
  };
  PictureDifference result{0, QImage(seen.size(), QImage::Format_RGB32)};
  const bool isComparable = seen.size() == kept.size();
  for (int y = 0; y < seen.height(); ++y) {
    for (int x = 0; x < seen.width(); ++x) {
      const bool isDifferent = !isComparable || isFar(seen.pixel(x, y), kept.pixel(x, y));
      const int pale = 192 + qGray(seen.pixel(x, y)) / 4;
      result.picture.setPixel(x, y, isDifferent ? qRgb(255, 0, 0) : qRgb(pale, pale, pale));
      if (isDifferent) ++result.pixels;
    }
  }
  return result;
}

/// Where font, style and Qt are the same, not even as many pixels differ as a line's ends have.
constexpr int mostDifferentPixels = 4;

[[nodiscard]] inline bool looksLike(const QImage& seen, const QImage& kept) {
  return differenceOf(seen, kept).pixels <= mostDifferentPixels;
}

}  // namespace zunto::testing

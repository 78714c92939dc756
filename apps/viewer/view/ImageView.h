#pragma once

#include "Lib/SharedImageSet.h"
#include "viewer/view/Contents.h"
#include "viewer/view/PixelCoordinates.h"
#include "viewer/view/ViewState.h"

#include <QImage>
#include <QWidget>

#include <memory>

class QDoubleSpinBox;
class QToolButton;

namespace Kelvaris {
class MemImage;
}

namespace Kelvaris::Viewer {

class CinePlayer;
class DisplayControls;
class ImageCanvas;
class PositionBar;
class Ruler;

/// Shows the images of a set, a slice at a time: the picture with its scales, below it sliders for slices and images
/// and the controls of the display. Keys beside those of ImageCanvas: PageUp, PageDown, Home and End for slices, with
/// Ctrl (or where there is one slice) for images, Space plays the images.
///
/// The set is kept alive, its pixels aren't copied but for the slice that is shown; what it holds must not be changed
/// while it is shown. An image that has no form in main memory is read back each time it is shown. One that can't be
/// shown leaves the reason in its place.
class ImageView : public QWidget {
  Q_OBJECT

public:
  explicit ImageView(QWidget* parent = nullptr);
  ~ImageView() override;

  /// Another item: mapping and colour map start anew, the first slice of the first image fits the view. Null: nothing
  /// is shown.
  void showImages(std::shared_ptr<const SharedImageSet> images);
  /// The same item with new content (of another run, or live): zoom, pan, slice and display settings stay where they
  /// can.
  void updateImages(std::shared_ptr<const SharedImageSet> images);
  void clear() { showImages(nullptr); }
  const std::shared_ptr<const SharedImageSet>& images() const { return m_images; }

  /// The slice that is shown as a PNG has it: square pixels, in the present colours. Null where nothing is shown.
  /// Masked pixels are transparent where no colour has been chosen for them.
  QImage picture() const;

  /// Of what is shown; 0 where nothing is.
  int imageIndex() const;
  int slice() const;
  /// The nearest that there is.
  void setImageIndex(int index);
  void setSlice(int slice);

  const DisplayMapping& mapping() const;
  void setMapping(const DisplayMapping& mapping);
  /// Index into colorMaps().
  int colorMap() const;
  void setColorMap(int index);

  /// Slice, mapping, colours and zoom of what is shown, to look at the same images in the same way later.
  ViewState state() const;
  /// The nearest that there is. Nothing where nothing is shown.
  void setState(const ViewState& state);

  bool isPlaying() const;
  /// Plays the images over and over; nothing for one image.
  void setPlaying(bool playing);

  ImageCanvas& canvas() const { return *m_canvas; }
  const PixelCoordinates& coordinates() const { return m_coordinates; }

Q_SIGNALS:
  /// Value and position under the mouse or the crosshair: "123 | pixel (12, 40) | x 1.25 mm, depth 20.05 mm"; empty
  /// where there is neither.
  void pointed(const QString& text);
  void imageIndexChanged(int index);
  void sliceChanged(int slice);

protected:
  void keyPressEvent(QKeyEvent* event) override;
  void changeEvent(QEvent* event) override;

private:
  void updatePlayIcon();
  void load(bool anew);
  bool readPixels();
  void showSlice(bool anew);
  void resetMapping();
  SliceStatistics statistics() const;
  void updateColors();
  void updateRulers();
  void updatePointed();
  void advance(int images);
  bool stepTo(PositionBar& bar, int key);

  std::shared_ptr<const SharedImageSet> m_images;
  std::shared_ptr<const MemImage> m_pixels; ///< of the image that is shown; null if it can't be
  std::shared_ptr<const Mask> m_mask;
  Contents m_contents = Contents::Levels;
  bool m_awaitsValues = false; ///< what was shown had no values that a mapping could be made of
  PixelCoordinates m_coordinates;
  QString m_pointed;

  ImageCanvas* m_canvas;
  Ruler *m_xRuler, *m_yRuler;
  PositionBar *m_sliceBar, *m_imageBar;
  QToolButton* m_playButton;
  QDoubleSpinBox* m_rateBox;
  CinePlayer* m_player;
  DisplayControls* m_controls;
};

} // namespace Kelvaris::Viewer

#include "viewer/view/ImageView.h"

#include "Gui/QtHelpers.h"
#include "Lib/EightBitPicture.h"
#include "US/PixelSize.h"
#include "viewer/view/CinePlayer.h"
#include "viewer/view/DisplayControls.h"
#include "viewer/view/ImageCanvas.h"
#include "viewer/view/PixelText.h"
#include "viewer/view/PositionBar.h"
#include "viewer/view/Ruler.h"

#include <QDoubleSpinBox>
#include <QKeyEvent>
#include <QPainter>
#include <QToolButton>
#include <QVBoxLayout>

#include <cmath>
#include <memory>
#include <stdexcept>

namespace Kelvaris::Viewer {
namespace {

/// In the colour of the palette: those of styles are dark on dark.
QIcon playIcon(bool isPlaying, const QColor& color, double ratio) {
  QPixmap pixmap(QSize(16, 16) * ratio);
  pixmap.setDevicePixelRatio(ratio);
  pixmap.fill(Qt::transparent);
  QPainter painter(&pixmap);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(color);
  if (isPlaying) {
    painter.drawRect(3, 2, 4, 12);
    painter.drawRect(9, 2, 4, 12);
  } else {
    painter.drawPolygon(QPolygon({{3, 2}, {14, 8}, {3, 14}}));
  }
  return pixmap;
}

} // namespace

ImageView::ImageView(QWidget* parent)
    : QWidget(parent),
      m_canvas(&QtHelpers::make<ImageCanvas>(this)),
      m_xRuler(&QtHelpers::make<Ruler>(this, Qt::Horizontal)),
      m_yRuler(&QtHelpers::make<Ruler>(this, Qt::Vertical)),
      m_sliceBar(&QtHelpers::make<PositionBar>(this, tr("Slice"), tr("PageUp, PageDown, Home, End"))),
      m_imageBar(&QtHelpers::make<PositionBar>(this, tr("Image"), tr("Ctrl and PageUp, PageDown, Home, End"))),
      m_playButton(&QtHelpers::make<QToolButton>(this)),
      m_rateBox(&QtHelpers::make<QDoubleSpinBox>(this)),
      m_player(&QtHelpers::make<CinePlayer>(this)),
      m_controls(&QtHelpers::make<DisplayControls>(this)) {
  setFocusProxy(m_canvas);
  m_playButton->setCheckable(true);
  m_playButton->setToolTip(tr("Play the images over and over (Space)"));
  m_playButton->setAccessibleName(tr("Play"));
  m_rateBox->setRange(0.1, 1000.0);
  m_rateBox->setDecimals(1);
  m_rateBox->setSuffix(tr(" /s"));
  m_rateBox->setKeyboardTracking(false);
  QtHelpers::takeCommaAsPoint(*m_rateBox);
  m_rateBox->setToolTip(tr("Images per second"));
  m_rateBox->setAccessibleName(tr("Images per second"));
  m_imageBar->addControl(m_playButton);
  m_imageBar->addControl(m_rateBox);

  // The rulers lie beside the picture, over the part of the canvas that it leaves free: see updateRulers().
  auto area = std::make_unique<QVBoxLayout>();
  area->setContentsMargins(m_yRuler->sizeHint().width(), m_xRuler->sizeHint().height(), 0, 0);
  area->addWidget(m_canvas);
  for (Ruler* ruler : {m_xRuler, m_yRuler})
    ruler->setAttribute(Qt::WA_TransparentForMouseEvents);
  auto& all = QtHelpers::make<QVBoxLayout>(this);
  all.addLayout(area.release(), 1);
  all.addWidget(m_sliceBar);
  all.addWidget(m_imageBar);
  all.addWidget(m_controls);

  connect(m_canvas, &ImageCanvas::transformed, this, &ImageView::updateRulers);
  connect(m_canvas, &ImageCanvas::pointed, this, &ImageView::updatePointed);
  connect(m_canvas, &ImageCanvas::windowDragged, this, [this](const QPointF& distance) {
    if (m_contents == Contents::Color) return;
    DisplayMapping changed = mapping();
    changed.drag(distance.x(), distance.y());
    setMapping(changed);
  });
  connect(m_sliceBar, &PositionBar::positionChanged, this, [this](int position) {
    showSlice(false);
    Q_EMIT sliceChanged(position);
  });
  connect(m_imageBar, &PositionBar::positionChanged, this, [this](int position) {
    load(false);
    Q_EMIT imageIndexChanged(position);
  });
  connect(m_playButton, &QToolButton::toggled, this, &ImageView::setPlaying);
  connect(m_rateBox, qOverload<double>(&QDoubleSpinBox::valueChanged), m_player, &CinePlayer::setRate);
  connect(m_player, &CinePlayer::advance, this, &ImageView::advance);
  connect(m_controls, &DisplayControls::mappingChanged, this, [this] { setMapping(m_controls->mapping()); });
  connect(m_controls, &DisplayControls::lawChosen, this, [this](DisplayMapping::Law law) {
    if (m_pixels) setMapping(automaticMapping(law, m_contents, statistics()));
  });
  connect(m_controls, &DisplayControls::automaticRequested, this, [this] {
    if (m_pixels) setMapping(automaticMapping(mapping().law, m_contents, statistics()));
  });
  connect(m_controls, &DisplayControls::fullRequested, this, [this] {
    if (m_pixels) setMapping(fullMapping(mapping().law, m_pixels->descriptor(), statistics()));
  });
  connect(m_controls, &DisplayControls::colorsChanged, this, &ImageView::updateColors);
  connect(m_controls, &DisplayControls::interpolationChosen, m_canvas, &ImageCanvas::setInterpolation);
  connect(m_controls, &DisplayControls::stretchingChosen, m_canvas, &ImageCanvas::setStretched);
  connect(m_controls, &DisplayControls::fitRequested, m_canvas, &ImageCanvas::fit);
  connect(m_controls, &DisplayControls::oneToOneRequested, m_canvas, &ImageCanvas::oneToOne);
  updatePlayIcon();
  clear();
}

ImageView::~ImageView() = default;

void ImageView::showImages(std::shared_ptr<const SharedImageSet> images) {
  m_playButton->setChecked(false);
  m_images = std::move(images);
  {
    const QSignalBlocker blockSlices(m_sliceBar), blockImages(m_imageBar);
    m_imageBar->setCount(m_images ? m_images->size() : 0);
    m_imageBar->setPosition(0);
    m_sliceBar->setPosition(0);
  }
  if (m_images) m_rateBox->setValue(cineRate(*m_images));
  m_controls->setColorMap(0);
  load(true);
}

void ImageView::updateImages(std::shared_ptr<const SharedImageSet> images) {
  if (!m_images || !images) return showImages(std::move(images));
  m_images = std::move(images);
  const int before = imageIndex();
  {
    const QSignalBlocker blocker(m_imageBar);
    m_imageBar->setCount(m_images->size());
  }
  if (m_images->size() < 2) m_playButton->setChecked(false);
  load(false);
  if (imageIndex() != before) Q_EMIT imageIndexChanged(imageIndex());
}

/// Brings the image of the present index to main memory. False, with the reason in the canvas, where there is none.
bool ImageView::readPixels() {
  m_pixels.reset();
  m_mask.reset();
  if (!m_images || m_images->size() == 0) {
    m_canvas->setMessage(m_images ? tr("There are no images") : QString());
    return false;
  }
  try {
    const SharedImage& image = m_images->get(imageIndex());
    if (!image.descriptor().isValid()) throw std::runtime_error("it has no pixels: " + image.descriptor().toString());
    m_pixels = image.hasForm(ImageForm::Mem) ? image.mem() : image.temporaryMem();
    m_mask = image.mask();
    return true;
  } catch (const std::exception& error) {
    m_pixels.reset();
    m_canvas->setMessage(tr("Image %1 can't be shown: %2").arg(imageIndex()).arg(QString::fromUtf8(error.what())));
    return false;
  }
}

void ImageView::load(bool anew) {
  const std::shared_ptr<const MemImage> before = m_pixels;
  const bool hasPixels = readPixels();
  m_controls->setEnabled(hasPixels);
  {
    const QSignalBlocker blocker(m_sliceBar);
    m_sliceBar->setCount(hasPixels ? m_pixels->slices() : 0);
  }
  if (!hasPixels) {
    m_coordinates = {};
    return updateRulers();
  }
  const ImageDescriptor& d = m_pixels->descriptor();
  if (anew || !before || m_awaitsValues || before->descriptor().pixelType() != d.pixelType() ||
      before->channels() != d.channels())
    resetMapping();
  showSlice(anew || !before);
}

SliceStatistics ImageView::statistics() const {
  return {*m_pixels, m_mask.get(), slice()};
}

void ImageView::resetMapping() {
  const SliceStatistics values = statistics();
  m_contents = contentsOf(m_pixels->descriptor(), values);
  const bool isFixed = m_contents == Contents::Levels || m_contents == Contents::Color;
  m_awaitsValues = !isFixed && values.least() == values.most();
  m_controls->setMapping(firstMapping(m_contents, values));
  m_controls->setMappingEnabled(m_contents != Contents::Color);
}

void ImageView::showSlice(bool anew) {
  if (!m_pixels) return;
  try {
    const int index = imageIndex();
    const bool wasMetric = m_coordinates.isMetric();
    m_coordinates = PixelCoordinates(*m_images, index, slice());
    m_sliceBar->setTitle(m_coordinates.sliceTitle());
    if (anew || wasMetric != m_coordinates.isMetric())
      m_controls->setStretching(!m_coordinates.isMetric(), m_coordinates.isUnlike());
    SlicePicture picture(mapSlice(*m_pixels, m_mask.get(), slice(), mapping()),
                         EightBitPicture::pixelSize(m_pixels->descriptor(), US::prescanPixelSize(*m_images, index)));
    picture.setColors(m_controls->colorMap(), m_controls->maskColor());
    m_controls->setMaskControlVisible(picture.hasMask());
    m_canvas->setPicture(std::move(picture), m_controls->isStretched(), anew);
  } catch (const std::exception& error) {
    m_pixels.reset();
    m_canvas->setMessage(tr("Image %1 can't be shown: %2").arg(imageIndex()).arg(QString::fromUtf8(error.what())));
  }
  m_xRuler->setAxis(m_coordinates.x());
  m_yRuler->setAxis(m_coordinates.y());
}

QImage ImageView::picture() const {
  return m_canvas->picture().picture();
}

int ImageView::imageIndex() const {
  return m_imageBar->position();
}

int ImageView::slice() const {
  return m_sliceBar->position();
}

void ImageView::setImageIndex(int index) {
  m_imageBar->setPosition(index);
}

void ImageView::setSlice(int slice) {
  m_sliceBar->setPosition(slice);
}

const DisplayMapping& ImageView::mapping() const {
  return m_controls->mapping();
}

void ImageView::setMapping(const DisplayMapping& mapping) {
  m_awaitsValues = false;
  m_controls->setMapping(mapping);
  showSlice(false);
}

int ImageView::colorMap() const {
  return colorMapIndex(m_controls->colorMap().name);
}

void ImageView::setColorMap(int index) {
  m_controls->setColorMap(index);
}

ViewState ImageView::state() const {
  ViewState state{imageIndex(), slice(), std::nullopt, m_controls->colorMap().name, 0.0, {}};
  if (m_pixels && !m_awaitsValues && m_contents != Contents::Color) state.mapping = mapping();
  const ViewTransform& transform = m_canvas->transform();
  if (m_canvas->picture().isNull() || transform.isFitted()) return state;
  state.magnification = transform.magnification();
  state.center = transform.center();
  return state;
}

void ImageView::setState(const ViewState& state) {
  if (!m_pixels) return;
  setImageIndex(state.image);
  setSlice(state.slice);
  if (state.mapping && m_contents != Contents::Color) setMapping(*state.mapping);
  setColorMap(std::max(colorMapIndex(state.colorMap), 0));
  if (state.magnification > 0.0)
    m_canvas->lookAt(state.center, state.magnification);
  else
    m_canvas->fit();
}

bool ImageView::isPlaying() const {
  return m_player->isPlaying();
}

void ImageView::setPlaying(bool playing) {
  playing = playing && m_imageBar->count() > 1;
  m_player->setPlaying(playing);
  QtHelpers::setSilent(*m_playButton, &QToolButton::setChecked, playing);
  updatePlayIcon();
}

void ImageView::updatePlayIcon() {
  m_playButton->setIcon(playIcon(isPlaying(), palette().color(QPalette::ButtonText), devicePixelRatioF()));
}

void ImageView::changeEvent(QEvent* event) {
  QWidget::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) updatePlayIcon();
}

void ImageView::advance(int images) {
  m_imageBar->setPosition((imageIndex() + images) % std::max(m_imageBar->count(), 1));
}

void ImageView::updateColors() {
  m_canvas->setColors(m_controls->colorMap(), m_controls->maskColor());
}

void ImageView::updateRulers() {
  const ViewTransform& transform = m_canvas->transform();
  const bool hasPicture = !m_canvas->picture().isNull();
  const double ratio = devicePixelRatioF();
  const QRectF content = hasPicture ? transform.content() : QRectF();
  const QSize x(m_canvas->width(), m_xRuler->sizeHint().height()), y(m_yRuler->sizeHint().width(), m_canvas->height());
  const QPoint corner(std::max(0, static_cast<int>(content.left() / ratio)),
                      std::max(0, static_cast<int>(content.top() / ratio)));
  m_xRuler->setGeometry(QRect(m_canvas->pos() + QPoint(0, corner.y() - x.height()), x));
  m_yRuler->setGeometry(QRect(m_canvas->pos() + QPoint(corner.x() - y.width(), 0), y));
  m_xRuler->setExtent(content.left() / ratio, content.right() / ratio, std::max(m_canvas->picture().width(), 1));
  m_yRuler->setExtent(content.top() / ratio, content.bottom() / ratio, std::max(m_canvas->picture().height(), 1));
  m_controls->setMagnification(transform.magnification());
}

void ImageView::updatePointed() {
  QString text;
  const std::optional<QPointF> place = m_pixels ? m_canvas->pointedPlace() : std::nullopt;
  if (place) {
    const int x = static_cast<int>(std::floor(place->x())), y = static_cast<int>(std::floor(place->y()));
    text = tr("%1 | pixel (%2, %3) | %4")
               .arg(pixelText(*m_pixels, m_mask.get(), m_contents, x, y, slice()))
               .arg(x)
               .arg(y)
               .arg(m_coordinates.describe(*place));
  }
  m_xRuler->setMarker(place ? std::optional(place->x()) : std::nullopt);
  m_yRuler->setMarker(place ? std::optional(place->y()) : std::nullopt);
  if (text == m_pointed) return;
  m_pointed = text;
  Q_EMIT pointed(text);
}

bool ImageView::stepTo(PositionBar& bar, int key) {
  switch (key) {
  case Qt::Key_PageUp:
    bar.setPosition(bar.position() - 1);
    return true;
  case Qt::Key_PageDown:
    bar.setPosition(bar.position() + 1);
    return true;
  case Qt::Key_Home:
    bar.setPosition(0);
    return true;
  case Qt::Key_End:
    bar.setPosition(bar.count() - 1);
    return true;
  default:
    return false;
  }
}

void ImageView::keyPressEvent(QKeyEvent* event) {
  const bool images = event->modifiers() & Qt::ControlModifier || m_sliceBar->count() < 2;
  if (event->key() == Qt::Key_Space)
    setPlaying(!isPlaying());
  else if (!stepTo(images ? *m_imageBar : *m_sliceBar, event->key()))
    QWidget::keyPressEvent(event);
}

} // namespace Kelvaris::Viewer

#include "viewer/view/DisplayControls.h"

#include "Gui/QtHelpers.h"
#include "viewer/view/WrapLayout.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QPushButton>
#include <QSignalBlocker>

#include <algorithm>
#include <array>
#include <cmath>
#include <initializer_list>

namespace Kelvaris::Viewer {
namespace {

using Law = DisplayMapping::Law;
using Interpolation = ImageCanvas::Interpolation;

QIcon colorBar(const ColorMap& map) {
  QImage bar(256, 1, QImage::Format_RGB32);
  for (int i = 0; i < 256; ++i)
    bar.setPixel(i, 0, map.colors[static_cast<std::size_t>(i)]);
  return QPixmap::fromImage(bar.scaled(48, 14));
}

QIcon swatch(const QColor& color, const QBrush& pattern = Qt::NoBrush) {
  QPixmap pixmap(14, 14);
  pixmap.fill(color);
  QPainter(&pixmap).fillRect(pixmap.rect(), pattern);
  return pixmap;
}

QComboBox* comboBox(QWidget* parent, const QString& name, const QString& tip) {
  auto* box = &QtHelpers::make<QComboBox>(parent);
  box->setAccessibleName(name);
  box->setToolTip(tip);
  return box;
}

QDoubleSpinBox* spinBox(QWidget* parent) {
  auto* box = &QtHelpers::make<QDoubleSpinBox>(parent);
  box->setKeyboardTracking(false);
  QtHelpers::takeCommaAsPoint(*box);
  box->setDecimals(15); // setMapping() shows as many as the width needs
  box->setRange(-1e15, 1e15);
  // Without a width of its own it would take that of the largest number.
  box->setFixedWidth(box->fontMetrics().horizontalAdvance(QStringLiteral("-00000.00 dB")) + 28);
  return box;
}

QPushButton* button(QWidget* parent, const QString& text, const QString& tip) {
  auto* made = &QtHelpers::make<QPushButton>(parent, text);
  made->setToolTip(tip);
  made->setFixedWidth(made->fontMetrics().horizontalAdvance(text) + 24);
  return made;
}

QLabel* label(QWidget* parent, const QString& text, QWidget* buddy) {
  auto* made = &QtHelpers::make<QLabel>(parent, text);
  made->setBuddy(buddy);
  return made;
}

/// Widgets that stay together in one line.
QWidget* group(QWidget* parent, std::initializer_list<QWidget*> widgets) {
  auto* made = &QtHelpers::make<QWidget>(parent);
  auto& layout = QtHelpers::make<QHBoxLayout>(made);
  layout.setContentsMargins(0, 0, 0, 0);
  for (QWidget* widget : widgets)
    layout.addWidget(widget);
  return made;
}

} // namespace

DisplayControls::DisplayControls(QWidget* parent)
    : QWidget(parent),
      m_colorMap(comboBox(this, tr("Colour map"), tr("Colours of the levels"))),
      m_law(comboBox(this, tr("What is shown"),
                     tr("Linear: the value (for IQ its magnitude)\nDecibels: 20 log10 of its amount, 0 dB for 1"))),
      m_masked(comboBox(this, tr("Masked pixels"),
                        tr("What invalid pixels look like. Striped ones are transparent in a saved picture"))),
      m_interpolation(comboBox(this, tr("Interpolation"),
                               tr("How a magnified picture looks. Automatic: smooth until pixels are large"))),
      m_centerLabel(&QtHelpers::make<QLabel>(this)),
      m_widthLabel(&QtHelpers::make<QLabel>(this)),
      m_magnification(&QtHelpers::make<QLabel>(this)),
      m_center(spinBox(this)),
      m_width(spinBox(this)),
      m_automatic(button(this, tr("Au&to"), tr("The range that the values of this slice suggest"))),
      m_full(button(this, tr("F&ull"),
                    tr("The whole range of the pixel type, or of the values of this slice where that has no bounds"))),
      m_stretched(&QtHelpers::make<QCheckBox>(this, tr("Stretch"))) {
  for (const ColorMap& map : colorMaps()) {
    m_colorMap->addItem(colorBar(map), map.name);
    m_colorMap->setItemData(m_colorMap->count() - 1, map.description, Qt::ToolTipRole);
  }
  m_colorMap->setIconSize({48, 14});
  m_law->addItem(tr("Linear"), static_cast<int>(Law::Linear));
  m_law->addItem(tr("Decibels"), static_cast<int>(Law::Decibels));
  m_masked->addItem(swatch(ImageCanvas::maskedColor(), ImageCanvas::maskedStripes()), tr("Striped"));
  for (const auto& [name, color] :
       {std::pair(tr("Navy"), QColor(0, 0, 128)), std::pair(tr("Gray"), QColor(128, 128, 128)),
        std::pair(tr("White"), QColor(Qt::white)), std::pair(tr("Black"), QColor(Qt::black)),
        std::pair(tr("Magenta"), QColor(255, 0, 255))})
    m_masked->addItem(swatch(color), name, color);
  m_interpolation->addItem(tr("Automatic"), static_cast<int>(Interpolation::Automatic));
  m_interpolation->addItem(tr("Smooth"), static_cast<int>(Interpolation::Smooth));
  m_interpolation->addItem(tr("Nearest"), static_cast<int>(Interpolation::Nearest));
  m_centerLabel->setBuddy(m_center);
  m_widthLabel->setBuddy(m_width);
  m_stretched->setToolTip(tr("Fill the view, with a scale for each axis. Not for pictures in millimetres"));
  m_magnification->setToolTip(tr("Screen pixels for a pixel of the picture"));
  m_magnification->setMinimumWidth(m_magnification->fontMetrics().horizontalAdvance(QStringLiteral("00000 %")));
  auto* fit = button(this, tr("F&it"), tr("The whole picture (0)"));
  auto* oneToOne = button(this, tr("&1:1"), tr("One screen pixel for a pixel of the picture (1)"));

  auto& controls = QtHelpers::make<WrapLayout>(this);
  controls.addWidget(group(this, {label(this, tr("C&olours"), m_colorMap), m_colorMap}));
  controls.addWidget(group(this, {label(this, tr("&Shows"), m_law), m_law}));
  controls.addWidget(group(this, {m_centerLabel, m_center}));
  controls.addWidget(group(this, {m_widthLabel, m_width}));
  controls.addWidget(group(this, {m_automatic, m_full}));
  controls.addWidget(m_maskGroup = group(this, {label(this, tr("&Masked"), m_masked), m_masked}));
  controls.addWidget(group(this, {label(this, tr("&Pixels"), m_interpolation), m_interpolation}));
  controls.addWidget(m_stretched);
  controls.addWidget(group(this, {fit, oneToOne, m_magnification}));
  const std::array<QWidget*, 11> inOrder = {m_colorMap, m_law,           m_center,    m_width, m_automatic, m_full,
                                            m_masked,   m_interpolation, m_stretched, fit,     oneToOne};
  for (std::size_t i = 1; i < inOrder.size(); ++i)
    setTabOrder(inOrder[i - 1], inOrder[i]);

  const auto chosen = qOverload<int>(&QComboBox::activated);
  connect(m_colorMap, qOverload<int>(&QComboBox::currentIndexChanged), this, &DisplayControls::colorsChanged);
  connect(m_masked, qOverload<int>(&QComboBox::currentIndexChanged), this, &DisplayControls::colorsChanged);
  connect(m_law, chosen, this, [this] { Q_EMIT lawChosen(static_cast<Law>(m_law->currentData().toInt())); });
  connect(m_interpolation, qOverload<int>(&QComboBox::currentIndexChanged), this,
          [this] { Q_EMIT interpolationChosen(static_cast<Interpolation>(m_interpolation->currentData().toInt())); });
  for (QDoubleSpinBox* box : {m_center, m_width})
    connect(box, qOverload<double>(&QDoubleSpinBox::valueChanged), this, &DisplayControls::editMapping);
  connect(m_automatic, &QPushButton::clicked, this, &DisplayControls::automaticRequested);
  connect(m_full, &QPushButton::clicked, this, &DisplayControls::fullRequested);
  connect(m_stretched, &QCheckBox::toggled, this, &DisplayControls::stretchingChosen);
  connect(fit, &QPushButton::clicked, this, &DisplayControls::fitRequested);
  connect(oneToOne, &QPushButton::clicked, this, &DisplayControls::oneToOneRequested);
  setMapping({});
}

void DisplayControls::setMapping(const DisplayMapping& mapping) {
  m_mapping = mapping;
  const bool decibels = mapping.law == Law::Decibels;
  QtHelpers::setSilent(*m_law, &QComboBox::setCurrentIndex, m_law->findData(static_cast<int>(mapping.law)));
  m_centerLabel->setText(decibels ? tr("Hi&ghest") : tr("Level"));
  m_widthLabel->setText(decibels ? tr("Ra&nge") : tr("&Window"));
  const int magnitude = mapping.width() > 0.0 ? static_cast<int>(std::floor(std::log10(mapping.width()))) : 0;
  for (QDoubleSpinBox* box : {m_center, m_width}) {
    const QSignalBlocker blocker(box);
    box->setSuffix(decibels ? tr(" dB") : QString());
    box->setDecimals(decibels ? 1 : std::clamp(3 - magnitude, 0, 15));
    box->setSingleStep(decibels ? 1.0 : std::pow(10.0, magnitude - 1));
  }
  m_width->setMinimum(std::pow(10.0, -m_width->decimals()));
  QtHelpers::setSilent(*m_center, &QDoubleSpinBox::setValue, decibels ? mapping.high : mapping.center());
  QtHelpers::setSilent(*m_width, &QDoubleSpinBox::setValue, mapping.width());
  m_center->setToolTip(decibels ? tr("What the highest level shows, in dB (0 dB: a value of 1)\nRight drag up or down")
                                : tr("The value in the middle of the levels\nRight drag up or down"));
  m_width->setToolTip(decibels
                          ? tr("Dynamic range in dB, from the lowest level to the highest\nRight drag left or right")
                          : tr("From the value of the lowest level to that of the highest\nRight drag left or right"));
  m_center->setAccessibleName(decibels ? tr("Highest level in decibels") : tr("Level, the middle of the window"));
  m_width->setAccessibleName(decibels ? tr("Dynamic range in decibels") : tr("Width of the window"));
}

void DisplayControls::editMapping() {
  // What wasn't edited keeps the digits that its box doesn't show.
  const bool decibels = m_mapping.law == Law::Decibels;
  const auto edited = [](const QDoubleSpinBox* box, double present) {
    return std::abs(box->value() - present) <= 0.5 * std::pow(10.0, -box->decimals()) ? present : box->value();
  };
  const double width = edited(m_width, m_mapping.width());
  if (decibels) {
    m_mapping.high = edited(m_center, m_mapping.high);
    m_mapping.low = m_mapping.high - width;
  } else {
    m_mapping.setCenterAndWidth(edited(m_center, m_mapping.center()), width);
  }
  Q_EMIT mappingChanged();
}

void DisplayControls::setMappingEnabled(bool enabled) {
  for (QWidget* widget : std::initializer_list<QWidget*>{m_colorMap, m_law, m_center, m_width, m_automatic, m_full})
    widget->setEnabled(enabled);
}

const ColorMap& DisplayControls::colorMap() const {
  return colorMaps()[static_cast<std::size_t>(m_colorMap->currentIndex())];
}

void DisplayControls::setColorMap(int index) {
  m_colorMap->setCurrentIndex(index);
}

std::optional<QColor> DisplayControls::maskColor() const {
  const QVariant color = m_masked->currentData();
  return color.isValid() ? std::optional(color.value<QColor>()) : std::nullopt;
}

void DisplayControls::setMaskControlVisible(bool visible) {
  m_maskGroup->setVisible(visible);
}

void DisplayControls::setStretching(bool possible, bool stretched) {
  m_stretched->setVisible(possible);
  QtHelpers::setSilent(*m_stretched, &QCheckBox::setChecked, stretched);
}

bool DisplayControls::isStretched() const {
  return m_stretched->isChecked();
}

void DisplayControls::setMagnification(double magnification) {
  m_magnification->setText(tr("%1 %").arg(magnification * 100.0, 0, 'f', magnification < 0.1 ? 1 : 0));
}

} // namespace Kelvaris::Viewer

#pragma once

#include <QLayout>
#include <QList>

namespace Kelvaris::Viewer {

/// Lays its widgets side by side like words, in as many lines as the width asks for. It needs the height of all lines
/// at the width that it has.
class WrapLayout : public QLayout {
public:
  explicit WrapLayout(QWidget* parent);
  ~WrapLayout() override;

  void addItem(QLayoutItem* item) override { m_items.append(item); }
  int count() const override { return m_items.size(); }
  QLayoutItem* itemAt(int index) const override { return m_items.value(index); }
  QLayoutItem* takeAt(int index) override;

  Qt::Orientations expandingDirections() const override { return {}; }
  bool hasHeightForWidth() const override { return true; }
  int heightForWidth(int width) const override { return arrange(QRect(0, 0, width, 0), false); }
  QSize sizeHint() const override { return minimumSize(); }
  QSize minimumSize() const override;
  void setGeometry(const QRect& rect) override;

private:
  /// Height of the lines; places the items only if asked to.
  int arrange(const QRect& rect, bool place) const;

  QList<QLayoutItem*> m_items;
  int m_width = 0; ///< that it was laid out for last
};

} // namespace Kelvaris::Viewer

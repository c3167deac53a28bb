// The style mapping sheet: the document's custom Word style map as a list of
// Word style name → Inkharbour style, the target picked from the five styles
// (so no invalid target can be entered). Word style names found in the
// selected story's linked Word file are offered, so the author picks instead
// of typing.
#pragma once

#include <QDialog>
#include <QStringList>

#include "model/story.h"

class QTableWidget;

namespace inkharbour {

class StyleMapSheet : public QDialog {
  Q_OBJECT

 public:
  StyleMapSheet(const StyleMap& styleMap, const QStringList& wordStyles,
                QWidget* parent = nullptr);

  // The map as edited: rows with an empty Word name are left out; of two
  // rows with the same name the later one counts.
  StyleMap result() const;

  QTableWidget* table() const { return table_; }
  // Adds a row (the Word name, and the style it maps to).
  void addRow(const QString& wordStyle = {}, const QString& style = QStringLiteral("Body"));
  void removeSelectedRow();

 private:
  QStringList wordStyles_;
  QTableWidget* table_;
};

}  // namespace inkharbour

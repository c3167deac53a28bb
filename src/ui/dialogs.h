// The window's one seam to the user's modal answers: file panels and
// questions (and the table editor). The window asks through Dialogs; tests answer through a fake, so
// no test ever opens a real dialog.
#pragma once

#include <QString>
#include <QStringList>
#include <optional>

#include "model/story.h"

class QWidget;

namespace inkharbour {

// What a file panel offers: its title, the name it proposes (save panels),
// and its file types as Qt name filters ("Word Document (*.docx)").
struct FileRequest {
  enum class Mode { open, openMany, save };
  Mode mode = Mode::open;
  QString title;
  QString proposedName;
  QStringList filters;
};

class Dialogs {
 public:
  enum class SaveChoice { save, discard, cancel };

  virtual ~Dialogs() = default;
  // The chosen paths; empty when the user cancelled.
  virtual QStringList chooseFiles(QWidget* parent, const FileRequest& request) = 0;
  // "Do you want to save the changes …?" — Save, Don't Save or Cancel.
  virtual SaveChoice askToSave(QWidget* parent, const QString& documentName) = 0;
  // A question whose yes-button reads `action`; true when the user agreed.
  virtual bool confirm(QWidget* parent, const QString& title, const QString& text,
                       const QString& action) = 0;
  // A question with several answers, shown as buttons in this order; the
  // index of the one chosen, or -1 when the author cancelled.
  virtual int choose(QWidget* parent, const QString& title, const QString& text,
                     const QStringList& answers) = 0;
  // The table editor; the edited table, or none when the author cancelled.
  virtual std::optional<Table> editTable(QWidget* parent, const Table& table) = 0;
  // The style mapping sheet, offering `wordStyles` as names to pick; the
  // edited map, or none when the author cancelled.
  virtual std::optional<StyleMap> editStyleMap(QWidget* parent, const StyleMap& styleMap,
                                               const QStringList& wordStyles) = 0;
};

// The real panels and message boxes.
class QtDialogs : public Dialogs {
 public:
  QStringList chooseFiles(QWidget* parent, const FileRequest& request) override;
  SaveChoice askToSave(QWidget* parent, const QString& documentName) override;
  bool confirm(QWidget* parent, const QString& title, const QString& text,
               const QString& action) override;
  int choose(QWidget* parent, const QString& title, const QString& text,
             const QStringList& answers) override;
  std::optional<Table> editTable(QWidget* parent, const Table& table) override;
  std::optional<StyleMap> editStyleMap(QWidget* parent, const StyleMap& styleMap,
                                       const QStringList& wordStyles) override;
};

// The panels' file types.
namespace FileTypes {
// Open: the document's own type and its two older extensions, then JSON.
QStringList openDocument();
// Save: the document's own type, then JSON.
QStringList saveDocument();
// Place and Link to Original: Word, Excel and plain text.
QStringList placeable();
QStringList wordDocument();
}  // namespace FileTypes

}  // namespace inkharbour

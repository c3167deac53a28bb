#include "ui/dialogs.h"

#include <QFileDialog>
#include <QMessageBox>
#include <QPushButton>

#include "ui/style_map_sheet.h"
#include "ui/table_editor.h"

namespace inkharbour {

QStringList QtDialogs::chooseFiles(QWidget* parent, const FileRequest& request) {
  QFileDialog dialog(parent, request.title);
  dialog.setNameFilters(request.filters);
  switch (request.mode) {
    case FileRequest::Mode::open:
      dialog.setAcceptMode(QFileDialog::AcceptOpen);
      dialog.setFileMode(QFileDialog::ExistingFile);
      break;
    case FileRequest::Mode::openMany:
      dialog.setAcceptMode(QFileDialog::AcceptOpen);
      dialog.setFileMode(QFileDialog::ExistingFiles);
      break;
    case FileRequest::Mode::save:
      dialog.setAcceptMode(QFileDialog::AcceptSave);
      dialog.setFileMode(QFileDialog::AnyFile);
      dialog.selectFile(request.proposedName);
      break;
  }
  if (dialog.exec() != QDialog::Accepted) return {};
  return dialog.selectedFiles();
}

Dialogs::SaveChoice QtDialogs::askToSave(QWidget* parent, const QString& documentName) {
  QMessageBox box(parent);
  box.setIcon(QMessageBox::Warning);
  box.setWindowTitle(QObject::tr("Unsaved Changes"));
  box.setText(QObject::tr("Do you want to save the changes you made to “%1”?").arg(documentName));
  box.setInformativeText(QObject::tr("Your changes will be lost if you don’t save them."));
  box.setStandardButtons(QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel);
  box.setDefaultButton(QMessageBox::Save);
  switch (box.exec()) {
    case QMessageBox::Save:
      return SaveChoice::save;
    case QMessageBox::Discard:
      return SaveChoice::discard;
    default:
      return SaveChoice::cancel;
  }
}

bool QtDialogs::confirm(QWidget* parent, const QString& title, const QString& text,
                        const QString& action) {
  QMessageBox box(parent);
  box.setIcon(QMessageBox::Question);
  box.setWindowTitle(title);
  box.setText(text);
  QPushButton* yes = box.addButton(action, QMessageBox::AcceptRole);
  box.addButton(QMessageBox::Cancel);
  box.setDefaultButton(QMessageBox::Cancel);
  box.exec();
  return box.clickedButton() == yes;
}

int QtDialogs::choose(QWidget* parent, const QString& title, const QString& text,
                      const QStringList& answers) {
  QMessageBox box(parent);
  box.setIcon(QMessageBox::Warning);
  box.setWindowTitle(title);
  box.setText(text);
  QList<QAbstractButton*> buttons;
  for (const QString& answer : answers) buttons << box.addButton(answer, QMessageBox::AcceptRole);
  box.addButton(QMessageBox::Cancel);
  box.setDefaultButton(QMessageBox::Cancel);
  box.exec();
  return static_cast<int>(buttons.indexOf(box.clickedButton()));
}

std::optional<Table> QtDialogs::editTable(QWidget* parent, const Table& table) {
  TableEditor editor(table, parent);
  if (editor.exec() != QDialog::Accepted) return std::nullopt;
  return editor.result();
}

std::optional<StyleMap> QtDialogs::editStyleMap(QWidget* parent, const StyleMap& styleMap,
                                                const QStringList& wordStyles) {
  StyleMapSheet sheet(styleMap, wordStyles, parent);
  if (sheet.exec() != QDialog::Accepted) return std::nullopt;
  return sheet.result();
}

namespace FileTypes {

QStringList openDocument() {
  return {QObject::tr("Inkharbour Document (*.inkharbour *.quillmoor *.tidecopy)"),
          QObject::tr("JSON (*.json)")};
}

QStringList saveDocument() {
  return {QObject::tr("Inkharbour Document (*.inkharbour)"), QObject::tr("JSON (*.json)")};
}

QStringList placeable() {
  return {QObject::tr("Word, Excel and text files (*.docx *.xlsx *.txt *.text)"),
          QObject::tr("Word Document (*.docx)"), QObject::tr("Excel Workbook (*.xlsx)"),
          QObject::tr("Plain Text (*.txt *.text)")};
}

QStringList wordDocument() {
  return {QObject::tr("Word Document (*.docx)")};
}

}  // namespace FileTypes

}  // namespace inkharbour

// Autosave and recovery. While the document has unsaved changes, a recovery
// copy is written every minute, atomically and off the UI thread: beside the
// document as ".NAME.recovery", or for an untitled document in the
// application's data folder under this process's id. A clean save, a close or
// another document removes it. After a crash the copy is still there, and the
// next start (or the next open of that document) offers to restore it.
#pragma once

#include <QFutureWatcher>
#include <QObject>
#include <QString>
#include <QTimer>
#include <functional>
#include <optional>

namespace inkharbour {

class AppState;

class Autosave : public QObject {
  Q_OBJECT

 public:
  static constexpr int kIntervalMs = 60'000;

  // `unsaved` tells whether there is anything to keep.
  Autosave(AppState& state, std::function<bool()> unsaved, QObject* parent = nullptr);
  ~Autosave() override;

  // The document's own file (empty while untitled); its recovery copy goes
  // beside it. An older copy of another document is removed.
  void setDocumentPath(const QString& path);
  // Writes a copy now when there are unsaved changes (the timer calls this).
  void writeNow();
  // Waits for a copy being written.
  void finish();
  // Removes this document's copy: it was saved, or closed on purpose.
  void discard();
  QString recoveryPath() const;

  // The copy a crashed session left for `documentPath`, when it is newer
  // than the document itself.
  static std::optional<QString> leftFor(const QString& documentPath);
  // A copy an untitled document of a process that is gone left behind.
  static std::optional<QString> leftUntitled();
  static QString recoveryPathFor(const QString& documentPath);

 private:
  AppState& state_;
  std::function<bool()> unsaved_;
  QString documentPath_;
  QTimer timer_;
  QFutureWatcher<void> writing_;
};

}  // namespace inkharbour

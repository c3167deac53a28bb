#include "ui/autosave.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QStandardPaths>
#include <QtConcurrent>

#include <signal.h>
#include <unistd.h>

#include "app/app_state.h"
#include "model/document_file.h"

namespace inkharbour {

namespace {

QString untitledFolder() {
  return QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
         QStringLiteral("/recovery");
}

QString untitledPath(qint64 pid) {
  return untitledFolder() + QStringLiteral("/untitled-%1.inkharbour.recovery").arg(pid);
}

bool processAlive(qint64 pid) {
  return pid > 0 && ::kill(static_cast<pid_t>(pid), 0) == 0;
}

}  // namespace

Autosave::Autosave(AppState& state, std::function<bool()> unsaved, QObject* parent)
    : QObject(parent), state_(state), unsaved_(std::move(unsaved)) {
  timer_.setInterval(kIntervalMs);
  connect(&timer_, &QTimer::timeout, this, &Autosave::writeNow);
  timer_.start();
}

Autosave::~Autosave() {
  finish();
}

QString Autosave::recoveryPathFor(const QString& documentPath) {
  if (documentPath.isEmpty()) return untitledPath(QCoreApplication::applicationPid());
  const QFileInfo info(documentPath);
  return info.absolutePath() + QStringLiteral("/.") + info.fileName() +
         QStringLiteral(".recovery");
}

QString Autosave::recoveryPath() const {
  return recoveryPathFor(documentPath_);
}

void Autosave::setDocumentPath(const QString& path) {
  if (path == documentPath_) return;
  discard();
  documentPath_ = path;
}

void Autosave::writeNow() {
  if (!unsaved_() || writing_.isRunning()) return;
  const QString target = recoveryPath();
  QDir().mkpath(QFileInfo(target).absolutePath());
  // A copy, so that the author goes on editing while it is written.
  writing_.setFuture(QtConcurrent::run([document = state_.document(), target] {
    try {
      DocumentFile::write(document, target.toStdString());
    } catch (const std::exception&) {
      // A copy that cannot be written is no worse than none; the document is untouched.
    }
  }));
}

void Autosave::finish() {
  writing_.waitForFinished();
}

void Autosave::discard() {
  finish();
  QFile::remove(recoveryPath());
}

std::optional<QString> Autosave::leftFor(const QString& documentPath) {
  const QString copy = recoveryPathFor(documentPath);
  const QFileInfo info(copy);
  if (!info.exists()) return std::nullopt;
  const QFileInfo document(documentPath);
  if (document.exists() && document.lastModified() > info.lastModified()) {
    QFile::remove(copy);  // saved since: the copy is stale
    return std::nullopt;
  }
  return copy;
}

std::optional<QString> Autosave::leftUntitled() {
  const QDir folder(untitledFolder());
  for (const QString& name : folder.entryList({QStringLiteral("untitled-*.inkharbour.recovery")},
                                              QDir::Files, QDir::Time)) {
    const qint64 pid = name.section(QLatin1Char('-'), 1, 1).section(QLatin1Char('.'), 0, 0).toLongLong();
    if (pid != QCoreApplication::applicationPid() && !processAlive(pid)) {
      return folder.filePath(name);
    }
  }
  return std::nullopt;
}

}  // namespace inkharbour

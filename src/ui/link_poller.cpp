#include "ui/link_poller.h"

#include <QDir>
#include <QFileInfo>
#include <QSet>
#include <QtConcurrent>

#include "app/app_state.h"

namespace inkharbour {

LinkPoller::LinkPoller(AppState& state, QObject* parent) : QObject(parent), state_(state) {
  timer_.setInterval(kIntervalMs);
  connect(&timer_, &QTimer::timeout, this, &LinkPoller::poll);
  connect(&files_, &QFileSystemWatcher::fileChanged, this, &LinkPoller::onFileEvent);
  connect(&files_, &QFileSystemWatcher::directoryChanged, this, &LinkPoller::onFileEvent);
  connect(&watcher_, &QFutureWatcher<std::vector<LinkReadResult>>::finished, this,
          &LinkPoller::onReadsFinished);
  timer_.start();
}

LinkPoller::~LinkPoller() {
  // A read in flight works on copies; let it end before its watcher goes.
  watcher_.waitForFinished();
}

void LinkPoller::poll() {
  if (watcher_.isRunning()) {
    pending_ = true;
    return;
  }
  std::vector<LinkReadRequest> requests = state_.pollWithoutReading();
  if (requests.empty()) return;
  watcher_.setFuture(QtConcurrent::run([requests = std::move(requests)] {
    std::vector<LinkReadResult> results;
    results.reserve(requests.size());
    for (const auto& request : requests) results.push_back(AppState::readLinkedFile(request));
    return results;
  }));
}

void LinkPoller::onReadsFinished() {
  for (const auto& result : watcher_.result()) state_.applyLinkRead(result);
  if (pending_) {
    pending_ = false;
    poll();
  }
}

void LinkPoller::watchLinkedFiles() {
  QSet<QString> wanted;
  for (const auto& story : state_.document().stories) {
    if (!story.link) continue;
    const QString path = QString::fromStdString(story.link->path);
    wanted.insert(path);
    // A save by rename drops the file's watch; its folder's watch sees the
    // new file arrive, and the file is then watched again.
    wanted.insert(QFileInfo(path).absolutePath());
  }
  const QStringList watched = files_.files() + files_.directories();
  for (const QString& path : watched) {
    if (!wanted.contains(path)) files_.removePath(path);
  }
  for (const QString& path : wanted) {
    if (!watched.contains(path) && QFileInfo::exists(path)) files_.addPath(path);
  }
}

void LinkPoller::onFileEvent(const QString&) {
  watchLinkedFiles();
  poll();
}

}  // namespace inkharbour

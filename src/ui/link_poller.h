// Keeps the link statuses live: a two-second tick, plus a file-system watch
// on every linked file for an immediate refresh. The cheap part of a poll
// (a stat per file) runs on the UI thread; reading a changed file runs on a
// worker, and its result is applied on the UI thread in one step. Requests
// coalesce: at most one read is running and one more is pending.
#pragma once

#include <QFileSystemWatcher>
#include <QFutureWatcher>
#include <QObject>
#include <QTimer>
#include <vector>

#include "app/link_status.h"

namespace inkharbour {

class AppState;

class LinkPoller : public QObject {
  Q_OBJECT

 public:
  static constexpr int kIntervalMs = 2000;

  explicit LinkPoller(AppState& state, QObject* parent = nullptr);
  ~LinkPoller() override;

  // Polls now (the tick calls this too).
  void poll();
  // Watches exactly the files the document links to now.
  void watchLinkedFiles();
  // True while a worker reads changed files.
  bool busy() const { return watcher_.isRunning(); }

 private:
  void onFileEvent(const QString& path);
  void onReadsFinished();

  AppState& state_;
  QTimer timer_;
  QFileSystemWatcher files_;
  QFutureWatcher<std::vector<LinkReadResult>> watcher_;
  bool pending_ = false;
};

}  // namespace inkharbour

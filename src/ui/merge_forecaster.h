// The merge forecast of every modified link, kept fresh off the UI thread.
// refresh() finds the modified stories whose forecast is missing or out of
// date and runs a dry-run merge for one of them at a time on a worker (the
// others wait their turn); each result is stored on the UI thread and
// announced with forecastChanged().
//
// A forecast is out of date once the story's link has a new base or path or
// its file another identity: it is hidden then and made again at once.
// Local edits only age it. It stays shown, and is made again at most once
// per localEditInterval() while the author types, since each request copies
// the whole story on the UI thread.
#pragma once

#include <QElapsedTimer>
#include <QFutureWatcher>
#include <QObject>
#include <QString>
#include <QTimer>
#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "app/link_status.h"
#include "app/merge_forecast.h"
#include "model/uuid.h"

namespace inkharbour {

class AppState;

class MergeForecaster : public QObject {
  Q_OBJECT

 public:
  static constexpr int kLocalEditIntervalMs = 3000;

  explicit MergeForecaster(AppState& state, QObject* parent = nullptr);
  ~MergeForecaster() override;

  // Brings the forecasts in line with the state; the window calls it after
  // every change. Costs a stat() per modified link, plus a copy of one
  // story when a forecast must be made.
  void refresh();
  // The forecast's text ("3 external edits, 1 conflict"), or no value: the
  // story is not modified, its forecast is being made or out of date, or
  // its file could not be read.
  std::optional<QString> forecast(const Uuid& storyID) const;
  // True while a worker makes a forecast.
  bool busy() const { return watcher_.isRunning(); }

  int localEditInterval() const { return localEditIntervalMs_; }
  void setLocalEditInterval(int milliseconds) { localEditIntervalMs_ = milliseconds; }

 signals:
  // What forecast() gives may have changed.
  void forecastChanged();

 private:
  // What a forecast was made from.
  struct Basis {
    std::string path;
    Date lastSync = 0;
    std::optional<FileIdentity> file;
    std::int64_t readStartNs = 0;  // the wall clock just before the stat()
    std::uint64_t revision = 0;    // the document's, for local edits

    // Same link base, path and file identity: only local edits may differ.
    bool sameSource(const Basis& other) const {
      return path == other.path && lastSync == other.lastSync && file == other.file;
    }
  };
  struct Forecast {
    Basis basis;
    std::optional<QString> text;  // none: the file could not be read
    bool outOfDate = false;
  };
  struct Running {
    Uuid storyID;
    Basis basis;
  };

  // refresh() without the signal; true when what forecast() gives may have
  // changed.
  bool update();
  // The basis of the most recent request for the story: running or done.
  const Basis* latest(const Uuid& storyID) const;
  // Whether the story needs a forecast now; when it will later, the timer
  // is set for then.
  bool needsForecast(const Uuid& storyID, const Basis& now);
  void start(const Uuid& storyID, Basis basis);
  void onFinished();
  void wakeIn(std::int64_t milliseconds);

  AppState& state_;
  std::map<Uuid, Forecast> forecasts_;
  std::map<Uuid, qint64> requestedMs_;  // when the last request for each story was made
  std::optional<Running> running_;
  QFutureWatcher<std::optional<MergeForecast>> watcher_;
  QTimer wake_;
  QElapsedTimer clock_;
  int localEditIntervalMs_ = kLocalEditIntervalMs;
};

}  // namespace inkharbour

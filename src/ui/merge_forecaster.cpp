#include "ui/merge_forecaster.h"

#include <QtConcurrent>
#include <algorithm>
#include <chrono>

#include "app/app_state.h"

namespace inkharbour {

namespace {

bool isModified(const AppState& state, const Uuid& storyID) {
  const auto found = state.linkStatuses().find(storyID);
  return found != state.linkStatuses().end() && found->second == LinkStatus::modified;
}

std::int64_t wallClockNs() {
  using namespace std::chrono;
  return duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count();
}

}  // namespace

MergeForecaster::MergeForecaster(AppState& state, QObject* parent)
    : QObject(parent), state_(state) {
  clock_.start();
  wake_.setSingleShot(true);
  connect(&wake_, &QTimer::timeout, this, &MergeForecaster::refresh);
  connect(&watcher_, &QFutureWatcher<std::optional<MergeForecast>>::finished, this,
          &MergeForecaster::onFinished);
}

MergeForecaster::~MergeForecaster() {
  // A forecast in flight works on copies; let it end before its watcher goes.
  watcher_.waitForFinished();
}

void MergeForecaster::refresh() {
  if (update()) emit forecastChanged();
}

bool MergeForecaster::update() {
  bool changed = false;
  for (auto it = forecasts_.begin(); it != forecasts_.end();) {
    if (isModified(state_, it->first)) {
      ++it;
    } else {
      it = forecasts_.erase(it);
      changed = true;
    }
  }
  std::erase_if(requestedMs_, [&](const auto& entry) { return !isModified(state_, entry.first); });

  std::optional<Running> next;
  const auto consider = [&](const Story& story) {
    if (!story.link || !isModified(state_, story.id)) return;
    // The clock before the stat, as LinkStatusCache takes it.
    const std::int64_t start = wallClockNs();
    Basis now{.path = story.link->path,
              .lastSync = story.link->lastSync,
              .file = FileIdentity::of(story.link->path),
              .readStartNs = start,
              .revision = state_.documentRevision()};
    const auto found = forecasts_.find(story.id);
    if (found != forecasts_.end() && !found->second.outOfDate &&
        !found->second.basis.sameSource(now)) {
      found->second.outOfDate = true;
      changed = true;
    }
    if (needsForecast(story.id, now) && !next) next = Running{story.id, std::move(now)};
  };
  // The story in the editor goes first.
  const auto selected = state_.selectedStoryIndex();
  const auto& stories = state_.document().stories;
  if (selected) consider(stories[*selected]);
  for (std::size_t i = 0; i < stories.size(); ++i) {
    if (i != selected) consider(stories[i]);
  }
  // One forecast at a time; the rest are found again when it is done.
  if (next && !busy()) start(next->storyID, std::move(next->basis));
  return changed;
}

const MergeForecaster::Basis* MergeForecaster::latest(const Uuid& storyID) const {
  if (running_ && running_->storyID == storyID) return &running_->basis;
  const auto found = forecasts_.find(storyID);
  return found == forecasts_.end() ? nullptr : &found->second.basis;
}

bool MergeForecaster::needsForecast(const Uuid& storyID, const Basis& now) {
  const Basis* last = latest(storyID);
  if (last == nullptr || !last->sameSource(now)) return true;
  if (last->file) {
    // A write in the same timestamp tick as the last read's stat would be
    // invisible to the identity (see LinkStatusCache::trusted). Such a read
    // is made once more when the margin has passed, and that one is trusted.
    const std::int64_t newest = std::max(last->file->modifiedNs, last->file->changedNs);
    if (newest >= last->readStartNs - LinkStatusCache::kRacyMarginNs) {
      const std::int64_t due = newest + LinkStatusCache::kRacyMarginNs;
      if (now.readStartNs > due) return true;
      wakeIn((due - now.readStartNs) / 1'000'000 + 1);
    }
  }
  if (last->revision != now.revision) {
    const auto requested = requestedMs_.find(storyID);
    const qint64 waited =
        clock_.elapsed() - (requested == requestedMs_.end() ? 0 : requested->second);
    if (waited >= localEditIntervalMs_) return true;
    wakeIn(localEditIntervalMs_ - waited);
  }
  return false;
}

void MergeForecaster::start(const Uuid& storyID, Basis basis) {
  auto request = forecastRequest(state_.document(), storyID);
  if (!request) return;
  requestedMs_[storyID] = clock_.elapsed();
  running_ = Running{storyID, std::move(basis)};
  watcher_.setFuture(
      QtConcurrent::run([request = std::move(*request)] { return runForecast(request); }));
}

void MergeForecaster::onFinished() {
  if (!running_) return;
  Running done = std::move(*running_);
  running_.reset();
  const auto result = watcher_.result();
  forecasts_[done.storyID] = Forecast{
      .basis = std::move(done.basis),
      .text = result ? std::optional(QString::fromStdString(describe(*result))) : std::nullopt,
      .outOfDate = false};
  // Drops it again when the story changed meanwhile, and starts the next.
  update();
  emit forecastChanged();
}

std::optional<QString> MergeForecaster::forecast(const Uuid& storyID) const {
  if (!isModified(state_, storyID)) return std::nullopt;
  const auto found = forecasts_.find(storyID);
  if (found == forecasts_.end() || found->second.outOfDate) return std::nullopt;
  // The link may have a new base or path since the last refresh.
  const Basis& basis = found->second.basis;
  for (const auto& story : state_.document().stories) {
    if (story.id != storyID) continue;
    if (!story.link || story.link->path != basis.path || story.link->lastSync != basis.lastSync) {
      return std::nullopt;
    }
    return found->second.text;
  }
  return std::nullopt;
}

void MergeForecaster::wakeIn(std::int64_t milliseconds) {
  const int ms = static_cast<int>(std::clamp<std::int64_t>(milliseconds, 1, 60'000));
  if (!wake_.isActive() || wake_.remainingTime() > ms) wake_.start(ms);
}

}  // namespace inkharbour

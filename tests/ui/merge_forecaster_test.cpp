// The merge forecaster over a story linked to a text file: the forecast is
// made on a worker once the link turns modified, follows the file, shows in
// the stories panel and the editor header, goes when the link is up to date,
// and ages without a recomputation per keystroke.
#include <QtTest>

#include <QAction>
#include <QFile>
#include <QLabel>
#include <QTemporaryDir>

#include "app/app_state.h"
#include "ui/editor_header.h"
#include "ui/merge_forecaster.h"
#include "ui/stories_panel.h"

using namespace inkharbour;

namespace {

constexpr char kOriginal[] = "one\ntwo\nthree\nfour\nfive";

std::optional<QString> text(const char* forecast) {
  return QString::fromUtf8(forecast);
}

}  // namespace

class MergeForecasterTest : public QObject {
  Q_OBJECT

 private slots:
  void init();
  void cleanup();

  void forecastFollowsTheFileIntoThePanels();
  void localEditsAgeTheForecastWithoutRecomputingIt();

 private:
  // Writes the file and lets the state and the forecaster see it, as a
  // poll and the window would.
  void changeFile(const QByteArray& content);
  std::optional<QString> forecast() const { return forecaster_->forecast(id_); }

  std::unique_ptr<QTemporaryDir> dir_;
  QString path_;
  std::unique_ptr<AppState> state_;
  std::unique_ptr<MergeForecaster> forecaster_;
  Uuid id_;
};

void MergeForecasterTest::init() {
  dir_ = std::make_unique<QTemporaryDir>();
  path_ = dir_->filePath(QStringLiteral("chapter.txt"));
  state_ = std::make_unique<AppState>();
  changeFile(kOriginal);
  state_->place(path_.toStdString());
  id_ = state_->document().stories.front().id;
  forecaster_ = std::make_unique<MergeForecaster>(*state_);
}

void MergeForecasterTest::cleanup() {
  forecaster_.reset();
  state_.reset();
  dir_.reset();
}

void MergeForecasterTest::changeFile(const QByteArray& content) {
  QFile file(path_);
  QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write(content);
  file.close();
  state_->tick();
  if (forecaster_) forecaster_->refresh();
}

void MergeForecasterTest::forecastFollowsTheFileIntoThePanels() {
  QAction update, relink, push, review;
  StoriesPanel stories(*state_, nullptr);
  EditorHeader header(*state_, &update, &relink, &push, &review);
  stories.setForecaster(forecaster_.get());
  header.setForecaster(forecaster_.get());
  // As the window does it.
  connect(forecaster_.get(), &MergeForecaster::forecastChanged, &stories, [&] {
    stories.refresh();
    header.refresh();
  });
  const auto* label = header.findChild<QLabel*>(QStringLiteral("linkForecast"));
  QVERIFY(label != nullptr);
  const QString path = QDir::toNativeSeparators(path_);

  changeFile("ONE\ntwo\nthree\nfour\nfive");
  QCOMPARE(state_->linkStatuses().at(id_), LinkStatus::modified);
  // The merge runs on a worker: nothing is known before the event loop turns.
  QCOMPARE(forecast(), std::nullopt);
  QTRY_COMPARE(forecast(), text("1 external edit"));
  const QTreeWidgetItem* row = stories.topLevelItem(0);
  QCOMPARE(row->toolTip(0), path + QStringLiteral("\nUpdate Link: 1 external edit"));
  QVERIFY(!label->isHidden());
  QCOMPARE(label->text(), QStringLiteral("1 external edit"));

  // Another version of the file hides the old forecast at once.
  changeFile("ONE\ntwo\nthree\nFOUR!\nfive");
  QCOMPARE(forecast(), std::nullopt);
  QTRY_COMPARE(forecast(), text("2 external edits"));

  changeFile(kOriginal);
  QCOMPARE(state_->linkStatuses().at(id_), LinkStatus::upToDate);
  QCOMPARE(forecast(), std::nullopt);
  stories.refresh();
  header.refresh();
  QCOMPARE(row->toolTip(0), path);
  QVERIFY(label->isHidden());
}

void MergeForecasterTest::localEditsAgeTheForecastWithoutRecomputingIt() {
  forecaster_->setLocalEditInterval(60'000);
  changeFile("ONE\ntwo\nthree\nfour\nfive");
  QTRY_COMPARE(forecast(), text("1 external edit"));

  // Keystrokes in the line the file changed too: the forecast stays as it
  // was, and no copy of the story is made for them.
  for (const char* typed : {"one!", "one!!"}) {
    state_->replaceBlocks(id_, 0, 1, {Block{.kind = Paragraph::make("Body", typed)}});
    forecaster_->refresh();
    QVERIFY(!forecaster_->busy());
    QCOMPARE(forecast(), text("1 external edit"));
  }

  // Once the interval has passed, the local text is taken in.
  forecaster_->setLocalEditInterval(100);
  forecaster_->refresh();
  QTRY_COMPARE(forecast(), text("1 conflict"));
}

QTEST_MAIN(MergeForecasterTest)
#include "merge_forecaster_test.moc"

// The merge forecaster over a story linked to a text file: the forecast is
// made on a worker once the link turns modified, follows the file, ages
// without a recomputation per keystroke, goes when the link is up to date,
// and shows in the stories panel and the editor header.
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

void writeText(const QString& path, const QByteArray& text) {
  QFile file(path);
  QVERIFY(file.open(QIODevice::WriteOnly | QIODevice::Truncate));
  file.write(text);
}

std::optional<QString> text(const char* forecast) {
  return QString::fromUtf8(forecast);
}

}  // namespace

class MergeForecasterTest : public QObject {
  Q_OBJECT

 private slots:
  void init();
  void cleanup();

  void forecastFollowsTheFileUntilTheLinkIsUpToDate();
  void localEditsAgeTheForecastWithoutRecomputingIt();
  void panelsShowTheForecastBesideTheStatus();

 private:
  // Changes the file and lets the state see it, as a poll would.
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
  writeText(path_, kOriginal);
  state_ = std::make_unique<AppState>();
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
  writeText(path_, content);
  state_->tick();
  forecaster_->refresh();
}

void MergeForecasterTest::forecastFollowsTheFileUntilTheLinkIsUpToDate() {
  QSignalSpy changed(forecaster_.get(), &MergeForecaster::forecastChanged);
  changeFile("ONE\ntwo\nthree\nfour\nfive");
  QCOMPARE(state_->linkStatuses().at(id_), LinkStatus::modified);
  // The merge runs on a worker: nothing is known before the event loop turns.
  QCOMPARE(forecast(), std::nullopt);
  QTRY_COMPARE(forecast(), text("1 external edit"));
  QVERIFY(changed.count() >= 1);

  // Another version of the file hides the old forecast at once.
  changeFile("ONE\ntwo\nthree\nFOUR!\nfive");
  QCOMPARE(forecast(), std::nullopt);
  QTRY_COMPARE(forecast(), text("2 external edits"));

  changeFile(kOriginal);
  QCOMPARE(state_->linkStatuses().at(id_), LinkStatus::upToDate);
  QCOMPARE(forecast(), std::nullopt);
  QTRY_VERIFY(!forecaster_->busy());
  QCOMPARE(forecast(), std::nullopt);
}

void MergeForecasterTest::localEditsAgeTheForecastWithoutRecomputingIt() {
  forecaster_->setLocalEditInterval(60'000);
  changeFile("ONE\ntwo\nthree\nfour\nfive");
  QTRY_COMPARE(forecast(), text("1 external edit"));

  // Keystrokes in the line the file changed too: the forecast stays as it
  // was, and no copy of the story is made for them.
  for (const char* typed : {"one!", "one!!", "one!!!"}) {
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

void MergeForecasterTest::panelsShowTheForecastBesideTheStatus() {
  QAction update, push, review;
  state_->selectStory(id_);
  StoriesPanel stories(*state_, nullptr);
  EditorHeader header(*state_, &update, &push, &review);
  stories.setForecaster(forecaster_.get());
  header.setForecaster(forecaster_.get());
  // As the window does it.
  connect(forecaster_.get(), &MergeForecaster::forecastChanged, &stories, [&] {
    stories.refresh();
    header.refresh();
  });
  QLabel* label = nullptr;
  for (QLabel* each : header.findChildren<QLabel*>()) {
    if (each->accessibleName() == QStringLiteral("Update Link forecast")) label = each;
  }
  QVERIFY(label != nullptr);
  const QString path =
      QDir::toNativeSeparators(QString::fromStdString(state_->document().stories[0].link->path));

  changeFile("ONE\ntwo\nthree\nfour\nfive");
  stories.refresh();
  header.refresh();
  const QTreeWidgetItem* row = stories.topLevelItem(0);
  QVERIFY(label->isHidden());
  QTRY_COMPARE(row->data(2, Qt::AccessibleTextRole).toString(),
               QStringLiteral("Modified, 1 external edit"));
  QCOMPARE(row->text(2), QStringLiteral("Modified"));
  QCOMPARE(row->toolTip(0), path + QStringLiteral("\nUpdate Link: 1 external edit"));
  QVERIFY(!label->isHidden());
  QCOMPARE(label->text(), QStringLiteral("1 external edit"));

  changeFile(kOriginal);
  stories.refresh();
  header.refresh();
  QCOMPARE(row->toolTip(0), path);
  QCOMPARE(row->text(2), QStringLiteral("Up to date"));
  QVERIFY(label->isHidden());
}

QTEST_MAIN(MergeForecasterTest)
#include "merge_forecaster_test.moc"

// The change review pane driven offscreen over a story with a hand-made
// merge report: what each row shows, the words marked in the two texts,
// the signals a selection sends, and refreshes that change nothing.
#include <QtTest>

#include <QLabel>
#include <QStackedWidget>
#include <QTextBlock>
#include <QTextBrowser>
#include <QTreeWidget>

#include "app/app_state.h"
#include "model/document_file.h"
#include "ui/change_review.h"

using namespace inkharbour;

namespace {

using Kind = ChangeRecord::Kind;

Block para(const std::string& text) {
  return Block{.kind = Paragraph::make("Body", text)};
}

ChangeRecord record(Kind kind, const std::string& summary,
                    std::optional<std::string> local = std::nullopt,
                    std::optional<std::string> external = std::nullopt) {
  return ChangeRecord{
      .kind = kind, .summary = summary, .localText = local, .externalText = external};
}

// The texts of the marked stretches of a view, in order.
QStringList marked(const QTextBrowser* view) {
  QStringList out;
  for (QTextBlock block = view->document()->begin(); block.isValid(); block = block.next()) {
    for (auto it = block.begin(); !it.atEnd(); ++it) {
      const QTextFragment fragment = it.fragment();
      if (fragment.charFormat().background().style() != Qt::NoBrush) out << fragment.text();
    }
  }
  return out;
}

}  // namespace

class ChangeReviewTest : public QObject {
  Q_OBJECT

 private slots:
  void init();
  void cleanup();

  void explainsAnEmptyReportAndNoStory();
  void rowsShowKindAsIconAndWordWithTheSummary();
  void selectionMarksTheChangedWholeWords();
  void selectionNamesTheRecordAndItsBlock();
  void refreshKeepsTheRowsUntilTheReportChanges();

 private:
  QTreeWidget* rows() const { return review_->findChild<QTreeWidget*>("changeRecords"); }
  QTextBrowser* view(const char* name) const { return review_->findChild<QTextBrowser*>(name); }
  void select(int row) { rows()->setCurrentItem(rows()->topLevelItem(row)); }

  std::unique_ptr<QTemporaryDir> dir_;
  std::unique_ptr<AppState> state_;
  std::unique_ptr<ChangeReview> review_;
  Story story_;
  QList<Uuid> records_;
  QList<Uuid> blocks_;
};

void ChangeReviewTest::init() {
  Block cited{
      .kind = Paragraph{.styleName = "Body",
                        .runs = {TextRun{.text = "See the note"}, TextRun::footnoteReference(1)}}};
  story_ =
      Story{.name = "Chapter",
            .blocks = {para("Intro"), para("The slow brown fox"), para("Kept line mine"),
                       para("second kept line"), cited},
            .footnotes = {Footnote{.id = 1, .paragraphs = {Paragraph::make("Footnote", "A note")}}},
            .lastMergeReport = {
                record(Kind::externalEdit, "Changed: The quick brown fox \u2192 The slow brown fox",
                       "The quick brown fox", "The slow brown fox"),
                record(Kind::localKept, "Changed: Kept line \u2192 Kept line mine",
                       "Kept line mine\nsecond kept line", "Kept line"),
                record(Kind::conflict, "Both sides edited the same content",
                       "Caf\u00E9 \U0001F44D\U0001F3FD now", "Caf\u00E9 \U0001F44D\U0001F3FF now"),
                record(Kind::bothSame, "Changed: a \u2192 b"),
                record(Kind::structural, "Independent insertions/deletions merged",
                       "Gone, long gone", ""),
                record(Kind::tableCells, "Table merged cell-by-cell (1 external cell change(s))"),
                record(Kind::externalEdit, "Footnote 1 updated from the external document"),
            }};
  dir_ = std::make_unique<QTemporaryDir>();
  const QString path = dir_->filePath("book.inkharbour");
  Story other{.name = "Other", .blocks = {para("Nothing merged here")}};
  DocumentFile::write(ProjectDocument{.stories = {story_, other}}, path.toStdString());
  state_ = std::make_unique<AppState>();
  state_->openDocument(path.toStdString());
  QVERIFY(!state_->lastError());
  review_ = std::make_unique<ChangeReview>(*state_);
  review_->resize(700, 500);
  review_->show();
  QVERIFY(QTest::qWaitForWindowExposed(review_.get()));
  records_.clear();
  blocks_.clear();
  connect(review_.get(), &ChangeReview::recordActivated, this,
          [this](const Uuid& id) { records_ << id; });
  connect(review_.get(), &ChangeReview::blockRequested, this,
          [this](const Uuid& id) { blocks_ << id; });
}

void ChangeReviewTest::cleanup() {
  review_.reset();
  state_.reset();
}

void ChangeReviewTest::explainsAnEmptyReportAndNoStory() {
  auto* pages = review_->findChild<QStackedWidget*>();
  auto* explanation = review_->findChild<QLabel*>("changeReviewExplanation");
  QCOMPARE(pages->currentIndex(), 1);

  state_->selectStory(state_->document().stories[1].id);
  review_->refresh();
  QCOMPARE(pages->currentWidget(), explanation);
  QVERIFY(explanation->text().startsWith("No changes to review."));

  state_->selectStory(std::nullopt);
  review_->refresh();
  QCOMPARE(explanation->text(), QString("Select a story to see what its last merge did."));
}

void ChangeReviewTest::rowsShowKindAsIconAndWordWithTheSummary() {
  QCOMPARE(rows()->topLevelItemCount(), int(story_.lastMergeReport.size()));
  QSet<QString> words;
  for (int row = 0; row < rows()->topLevelItemCount(); ++row) {
    const QTreeWidgetItem* item = rows()->topLevelItem(row);
    const ChangeRecord& expected = story_.lastMergeReport[std::size_t(row)];
    QCOMPARE(item->text(0), changeKindWord(expected.kind));
    QVERIFY(!item->icon(0).isNull());
    QCOMPARE(item->text(1), QString::fromStdString(expected.summary));
    words << item->text(0);
  }
  QCOMPARE(words.size(), 6);  // every kind has a word of its own
}

void ChangeReviewTest::selectionMarksTheChangedWholeWords() {
  // Marked stretches are listed with "|" between them; a line break ends one.
  const struct {
    int row;
    QString local, external, localMarks, externalMarks;
  } cases[] = {
      {0, "The quick brown fox", "The slow brown fox", "quick", "slow"},
      // The skin tone is marked with its emoji, never apart from it.
      {2, "Caf\u00E9 \U0001F44D\U0001F3FD now", "Caf\u00E9 \U0001F44D\U0001F3FF now",
       "\U0001F44D\U0001F3FD", "\U0001F44D\U0001F3FF"},
      {4, "Gone, long gone", "", "Gone, long gone", ""},
      {1, "Kept line mine\nsecond kept line", "Kept line", " mine|second kept line", ""},
  };
  for (const auto& c : cases) {
    select(c.row);
    QCOMPARE(view("localText")->toPlainText(), c.local);
    QCOMPARE(view("externalText")->toPlainText(), c.external);
    QCOMPARE(marked(view("localText")).join('|'), c.localMarks);
    QCOMPARE(marked(view("externalText")).join('|'), c.externalMarks);
  }
  QCOMPARE(review_->findChild<QLabel*>("changeHeading")->text(),
           changeKindWord(Kind::localKept) + ": " +
               QString::fromStdString(story_.lastMergeReport[1].summary));
}

void ChangeReviewTest::selectionNamesTheRecordAndItsBlock() {
  const auto& blocks = story_.blocks;
  const struct {
    int row;
    std::optional<Uuid> block;
  } cases[] = {
      {0, blocks[1].id},  // the external text the merge took
      {1, blocks[2].id},  // the kept local text, two blocks from here
      {2, std::nullopt},  // neither text is in the story any more
      {4, std::nullopt},  // the local text of a structural record, gone
      {6, blocks[4].id},  // the block that cites footnote 1
  };
  for (const auto& c : cases) {
    records_.clear();
    blocks_.clear();
    select(c.row);
    QCOMPARE(records_, QList<Uuid>{story_.lastMergeReport[std::size_t(c.row)].id});
    QCOMPARE(blocks_, c.block ? QList<Uuid>{*c.block} : QList<Uuid>{});
  }
  // Activating the row again names them again, for jumping back.
  records_.clear();
  blocks_.clear();
  emit rows()->itemActivated(rows()->currentItem(), 0);
  QCOMPARE(blocks_, QList<Uuid>{blocks[4].id});
}

void ChangeReviewTest::refreshKeepsTheRowsUntilTheReportChanges() {
  select(1);
  QTreeWidgetItem* before = rows()->topLevelItem(0);
  const Uuid storyID = story_.id;
  state_->replaceBlocks(storyID, 0, 1, {para("Intro, edited")});
  review_->refresh();
  QCOMPARE(rows()->topLevelItem(0), before);
  QCOMPARE(rows()->currentItem(), rows()->topLevelItem(1));

  // Another story's empty report and back: rebuilt, nothing selected, and
  // rebuilding sends no signal.
  state_->selectStory(state_->document().stories[1].id);
  review_->refresh();
  state_->selectStory(storyID);
  review_->refresh();
  QCOMPARE(rows()->topLevelItemCount(), int(story_.lastMergeReport.size()));
  QVERIFY(rows()->selectedItems().isEmpty());
  QVERIFY(records_.size() == 1 && blocks_.size() == 1);  // from the first selection only
}

QTEST_MAIN(ChangeReviewTest)
#include "change_review_test.moc"

#include "ui/change_review.h"

#include <QHeaderView>
#include <QLabel>
#include <QPainter>
#include <QPainterPath>
#include <QSplitter>
#include <QStackedWidget>
#include <QTextBrowser>
#include <QTextCursor>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <charconv>
#include <span>

#include "app/app_state.h"
#include "merge/summaries.h"
#include "merge/word_diff.h"
#include "model/text.h"
#include "ui/icons.h"

namespace inkharbour {

namespace {

using Kind = ChangeRecord::Kind;

// --- Icons ---------------------------------------------------------------------

// A change kind's icon: a filled shape in the kind's colour, with a symbol.
template <typename Paint>
QIcon painted(const QColor& colour, Paint paint) {
  return Icons::painted([&](QPainter& p) {
    p.setPen(Qt::NoPen);
    p.setBrush(colour);
    paint(p);
  });
}

void whiteStrokes(QPainter& p, double width) {
  p.setPen(QPen(Qt::white, width, Qt::SolidLine, Qt::RoundCap, Qt::RoundJoin));
  p.setBrush(Qt::NoBrush);
}

// --- Finding a record's block ------------------------------------------------------

// True when the block reads as `line` in a merge report, compared without
// copying a paragraph's text.
bool blockReads(const Block& block, std::string_view line) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind)) {
    std::size_t at = 0;
    for (const auto& run : paragraph->runs) {
      if (line.substr(at, run.text.size()) != run.text) return false;
      at += run.text.size();
    }
    return at == line.size();
  }
  return MergeEngine::joined(std::span(&block, 1)) == line;
}

// The first block where the text's lines stand one per block; failing that,
// the first block that reads as one of its non-empty lines.
std::optional<Uuid> blockHolding(const std::vector<Block>& blocks, std::string_view text) {
  if (text.empty()) return std::nullopt;
  const auto lines = text::lines(text);
  for (std::size_t s = 0; s + lines.size() <= blocks.size(); ++s) {
    std::size_t k = 0;
    while (k < lines.size() && blockReads(blocks[s + k], lines[k])) ++k;
    if (k == lines.size()) return blocks[s].id;
  }
  for (const auto line : lines) {
    if (line.empty()) continue;
    for (const auto& block : blocks) {
      if (blockReads(block, line)) return block.id;
    }
  }
  return std::nullopt;
}

bool cites(const Paragraph& paragraph, std::int64_t footnote) {
  return std::any_of(paragraph.runs.begin(), paragraph.runs.end(),
                     [&](const TextRun& run) { return run.footnoteID == footnote; });
}

bool blockCites(const Block& block, std::int64_t footnote) {
  if (const auto* paragraph = std::get_if<Paragraph>(&block.kind))
    return cites(*paragraph, footnote);
  if (const auto* table = std::get_if<Table>(&block.kind)) {
    for (const auto& row : table->rows) {
      for (const auto& cell : row) {
        for (const auto& paragraph : cell.paragraphs) {
          if (cites(paragraph, footnote)) return true;
        }
      }
    }
  }
  return false;
}

// The footnote a footnote merge's record is about: its summary begins
// "Footnote N".
std::optional<std::int64_t> footnoteOf(std::string_view summary) {
  constexpr std::string_view kPrefix = "Footnote ";
  if (!summary.starts_with(kPrefix)) return std::nullopt;
  std::int64_t id = 0;
  const char* first = summary.data() + kPrefix.size();
  const char* last = summary.data() + summary.size();
  const auto [end, error] = std::from_chars(first, last, id);
  if (error != std::errc{} || (end != last && *end != ' ' && *end != ':')) return std::nullopt;
  return id;
}

// --- Showing texts ---------------------------------------------------------------

// The text with its changed words marked by a background and an underline,
// so the difference does not rest on colour alone.
void showText(QTextBrowser* view, const std::optional<std::string>& text,
              const std::vector<MergeEngine::WordSpan>& spans, const QColor& mark) {
  view->clear();
  if (!text) return;
  QTextCursor cursor(view->document());
  QTextCharFormat plain;
  QTextCharFormat changed;
  changed.setBackground(mark);
  changed.setForeground(QColor(0x1a, 0x1a, 0x1a));
  changed.setFontUnderline(true);
  for (const auto& span : spans) {
    const QString piece =
        QString::fromUtf8(text->data() + span.begin, static_cast<qsizetype>(span.end - span.begin));
    cursor.insertText(piece, span.changed ? changed : plain);
  }
  view->moveCursor(QTextCursor::Start);
}

constexpr std::size_t kLongestCompared = std::size_t{1} << 18;

std::vector<MergeEngine::WordSpan> unmarked(std::size_t size) {
  if (size == 0) return {};
  return {MergeEngine::WordSpan{.begin = 0, .end = size, .changed = false}};
}

}  // namespace

QString changeKindWord(Kind kind) {
  switch (kind) {
    case Kind::externalEdit:
      return ChangeReview::tr("External edit");
    case Kind::localKept:
      return ChangeReview::tr("Local edit kept");
    case Kind::bothSame:
      return ChangeReview::tr("Same on both sides");
    case Kind::structural:
      return ChangeReview::tr("Blocks added or removed");
    case Kind::conflict:
      return ChangeReview::tr("Conflict");
    case Kind::tableCells:
      return ChangeReview::tr("Table merged by cell");
  }
  return {};
}

QIcon changeKindIcon(Kind kind) {
  switch (kind) {
    case Kind::externalEdit:  // a blue disc, an arrow coming in
      return painted(QColor(0x2b, 0x57, 0x9a), [](QPainter& p) {
        p.drawEllipse(QRectF(2, 2, 28, 28));
        whiteStrokes(p, 3.5);
        p.drawLine(QPointF(16, 8), QPointF(16, 23));
        p.drawPolyline(QPolygonF({QPointF(10, 17), QPointF(16, 23), QPointF(22, 17)}));
      });
    case Kind::localKept:  // a green disc with a check
      return painted(QColor(0x2e, 0x8b, 0x57), [](QPainter& p) {
        p.drawEllipse(QRectF(2, 2, 28, 28));
        whiteStrokes(p, 4);
        p.drawPolyline(QPolygonF({QPointF(9, 16.5), QPointF(14, 21.5), QPointF(23, 11)}));
      });
    case Kind::bothSame:  // a grey disc with an equals sign
      return painted(QColor(0x80, 0x80, 0x80), [](QPainter& p) {
        p.drawEllipse(QRectF(2, 2, 28, 28));
        whiteStrokes(p, 3.5);
        p.drawLine(QPointF(9, 12.5), QPointF(23, 12.5));
        p.drawLine(QPointF(9, 19.5), QPointF(23, 19.5));
      });
    case Kind::structural:  // a purple square with a plus
      return painted(QColor(0x6a, 0x3d, 0x9a), [](QPainter& p) {
        p.drawRoundedRect(QRectF(3, 3, 26, 26), 4, 4);
        whiteStrokes(p, 4);
        p.drawLine(QPointF(16, 9), QPointF(16, 23));
        p.drawLine(QPointF(9, 16), QPointF(23, 16));
      });
    case Kind::conflict:  // a red triangle with an exclamation mark
      return painted(QColor(0xc6, 0x28, 0x28), [](QPainter& p) {
        QPainterPath triangle;
        triangle.moveTo(16, 2);
        triangle.lineTo(31, 29);
        triangle.lineTo(1, 29);
        triangle.closeSubpath();
        p.drawPath(triangle);
        whiteStrokes(p, 4);
        p.drawLine(QPointF(16, 11), QPointF(16, 19));
        p.drawPoint(QPointF(16, 24.5));
      });
    case Kind::tableCells:  // a teal square ruled into cells
      return painted(QColor(0x00, 0x79, 0x7a), [](QPainter& p) {
        p.drawRoundedRect(QRectF(3, 3, 26, 26), 3, 3);
        whiteStrokes(p, 2.5);
        p.drawLine(QPointF(16, 6), QPointF(16, 26));
        p.drawLine(QPointF(6, 12.5), QPointF(26, 12.5));
        p.drawLine(QPointF(6, 19.5), QPointF(26, 19.5));
      });
  }
  return {};
}

std::optional<Uuid> blockOfRecord(const Story& story, const ChangeRecord& record) {
  if (const auto footnote = footnoteOf(record.summary)) {
    for (const auto& block : story.blocks) {
      if (blockCites(block, *footnote)) return block.id;
    }
    return std::nullopt;
  }
  // The text the story holds after the merge is looked for first.
  const bool localFirst = record.kind == Kind::localKept || record.kind == Kind::structural;
  const auto& first = localFirst ? record.localText : record.externalText;
  const auto& second = localFirst ? record.externalText : record.localText;
  for (const auto* text : {&first, &second}) {
    if (!*text) continue;
    if (auto found = blockHolding(story.blocks, **text)) return found;
  }
  return std::nullopt;
}

ChangeReview::ChangeReview(AppState& state, QWidget* parent)
    : QWidget(parent),
      state_(state),
      pages_(new QStackedWidget(this)),
      explanation_(new QLabel(this)),
      records_(new QTreeWidget(this)),
      heading_(new QLabel(this)),
      local_(new QTextBrowser(this)),
      external_(new QTextBrowser(this)) {
  setAccessibleName(tr("Last Merge — Change Review"));

  explanation_->setObjectName(QStringLiteral("changeReviewExplanation"));
  explanation_->setWordWrap(true);
  explanation_->setAlignment(Qt::AlignCenter);
  explanation_->setMargin(12);
  explanation_->setForegroundRole(QPalette::PlaceholderText);

  records_->setObjectName(QStringLiteral("changeRecords"));
  records_->setAccessibleName(tr("Changes made by the last merge"));
  records_->setColumnCount(2);
  records_->setHeaderLabels({tr("Change"), tr("Summary")});
  records_->setRootIsDecorated(false);
  records_->setUniformRowHeights(true);
  records_->setAllColumnsShowFocus(true);
  records_->setSelectionMode(QAbstractItemView::SingleSelection);
  records_->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  records_->header()->setStretchLastSection(true);

  heading_->setObjectName(QStringLiteral("changeHeading"));
  heading_->setTextFormat(Qt::PlainText);
  heading_->setWordWrap(true);
  heading_->setTextInteractionFlags(Qt::TextSelectableByMouse);

  auto side = [this](QTextBrowser* view, const QString& title, const QString& name) {
    view->setObjectName(name);
    view->setAccessibleName(title);
    view->setOpenLinks(false);
    view->setPlaceholderText(tr("No text on this side."));
    auto* box = new QWidget(this);
    auto* layout = new QVBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* label = new QLabel(title, box);
    label->setBuddy(view);
    layout->addWidget(label);
    layout->addWidget(view, 1);
    return box;
  };
  auto* sides = new QSplitter(Qt::Horizontal, this);
  sides->addWidget(side(local_, tr("Yours (local)"), QStringLiteral("localText")));
  sides->addWidget(side(external_, tr("External"), QStringLiteral("externalText")));

  auto* detail = new QWidget(this);
  auto* detailLayout = new QVBoxLayout(detail);
  detailLayout->setContentsMargins(0, 4, 0, 0);
  detailLayout->addWidget(heading_);
  detailLayout->addWidget(sides, 1);

  auto* report = new QSplitter(Qt::Vertical, this);
  report->addWidget(records_);
  report->addWidget(detail);
  report->setStretchFactor(0, 1);
  report->setStretchFactor(1, 2);

  pages_->addWidget(explanation_);
  pages_->addWidget(report);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(pages_);

  // Selection, not the current item: a list that takes the focus makes its
  // first row current without the author choosing it.
  connect(records_, &QTreeWidget::itemSelectionChanged, this, [this] {
    if (populating_) return;
    const auto selected = records_->selectedItems();
    if (!selected.isEmpty()) showRecord(selected.front());
  });
  connect(records_, &QTreeWidget::itemActivated, this,
          [this](QTreeWidgetItem* item) { showRecord(item); });

  refresh();
}

const Story* ChangeReview::story() const {
  const auto index = state_.selectedStoryIndex();
  return index ? &state_.document().stories[*index] : nullptr;
}

void ChangeReview::refresh() {
  static const std::vector<ChangeRecord> kNoReport;
  const Story* current = story();
  const std::optional<Uuid> storyID = current ? std::optional(current->id) : std::nullopt;
  const auto& report = current ? current->lastMergeReport : kNoReport;
  const bool same = shown_ && storyID == shownStory_ && report.size() == shownRecords_.size() &&
                    std::equal(report.begin(), report.end(), shownRecords_.begin(),
                               [](const ChangeRecord& r, const Uuid& id) { return r.id == id; });
  if (same) return;
  shown_ = true;
  shownStory_ = storyID;
  shownRecords_.clear();
  for (const auto& record : report) shownRecords_.push_back(record.id);

  populating_ = true;
  records_->clear();
  heading_->setText(tr("Select a change to compare the two versions."));
  for (QTextBrowser* view : {local_, external_}) {
    view->clear();
    view->setPlaceholderText(QString());  // nothing chosen yet, so nothing missing
  }
  for (const auto& record : report) {
    auto* item = new QTreeWidgetItem(records_);
    item->setIcon(0, changeKindIcon(record.kind));
    item->setText(0, changeKindWord(record.kind));
    item->setText(1, QString::fromStdString(record.summary));
    item->setToolTip(1, item->text(1));
    item->setData(0, Qt::UserRole, QString::fromStdString(record.id.string()));
  }
  populating_ = false;

  if (current == nullptr) {
    explanation_->setText(tr("Select a story to see what its last merge did."));
  } else if (report.empty()) {
    explanation_->setText(
        tr("No changes to review. After Update Link, every change the merge made to this story "
           "is listed here: external edits taken in, your edits kept, conflicts and merged "
           "tables."));
  }
  pages_->setCurrentIndex(report.empty() ? 0 : 1);
}

void ChangeReview::showRecord(QTreeWidgetItem* item) {
  const Story* current = story();
  if (item == nullptr || current == nullptr) return;
  const auto id = Uuid::parse(item->data(0, Qt::UserRole).toString().toStdString());
  const auto& report = current->lastMergeReport;
  const auto found = std::find_if(report.begin(), report.end(),
                                  [&](const ChangeRecord& record) { return record.id == id; });
  if (!id || found == report.end()) return;
  const ChangeRecord& record = *found;
  for (QTextBrowser* view : {local_, external_}) view->setPlaceholderText(tr("No text on this side."));

  heading_->setText(changeKindWord(record.kind) + QStringLiteral(": ") +
                    QString::fromStdString(record.summary));
  const std::string_view local = record.localText ? *record.localText : std::string_view();
  const std::string_view external = record.externalText ? *record.externalText : std::string_view();
  // A region of a whole book is shown, but not compared word by word on a click.
  const bool compare = local.size() + external.size() <= kLongestCompared;
  const auto diff = compare ? MergeEngine::wordDiff(local, external)
                            : MergeEngine::WordDiff{.local = unmarked(local.size()),
                                                    .external = unmarked(external.size())};
  showText(local_, record.localText, diff.local, QColor(0xf6, 0xc9, 0xbe));
  showText(external_, record.externalText, diff.external, QColor(0xbf, 0xe3, 0xc6));

  emit recordActivated(record.id);
  if (const auto block = blockOfRecord(*current, record)) emit blockRequested(*block);
}

}  // namespace inkharbour

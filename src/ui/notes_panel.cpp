#include "ui/notes_panel.h"

#include <QDateTime>
#include <QFrame>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/app_state.h"

namespace inkharbour {

namespace {

// Seconds since 2001-01-01 UTC, the document's dates.
constexpr qint64 kReferenceEpoch = 978307200;

QLabel* wrappedLabel(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  label->setWordWrap(true);
  label->setTextInteractionFlags(Qt::TextSelectableByMouse);
  label->setTextFormat(Qt::PlainText);
  return label;
}

}  // namespace

NotesPanel::NotesPanel(AppState& state, QWidget* parent)
    : QScrollArea(parent),
      state_(state),
      content_(new QWidget(this)),
      layout_(new QVBoxLayout(content_)),
      empty_(new QLabel(tr("No Story Notes. When both sides change the same text, the external "
                           "text wins and yours is kept here."),
                        content_)) {
  setWidgetResizable(true);
  setWidget(content_);
  setFrameShape(QFrame::NoFrame);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);  // cards wrap to the panel's width
  layout_->setContentsMargins(6, 6, 6, 6);
  layout_->setSpacing(8);
  empty_->setWordWrap(true);
  empty_->setEnabled(false);
  layout_->addWidget(empty_);
  layout_->addStretch(1);
  setAccessibleName(tr("Story Notes"));
}

void NotesPanel::refresh() {
  const auto index = state_.selectedStoryIndex();
  const Story* story = index ? &state_.document().stories[*index] : nullptr;
  QString now;
  if (story != nullptr) {
    now = QString::fromStdString(story->id.string());
    for (const auto& note : story->notes) now += QString::fromStdString(note.id.string());
  }
  if (now == shown_) return;
  shown_ = now;
  // Cards are rebuilt: notes change only by a merge or a dismissal.
  while (layout_->count() > 2) {
    QLayoutItem* item = layout_->takeAt(1);
    delete item->widget();
    delete item;
  }
  const bool any = story != nullptr && !story->notes.empty();
  empty_->setVisible(!any);
  if (!any) return;
  const Uuid storyID = story->id;
  int position = 1;
  for (const auto& note : story->notes) {
    auto* card = new QFrame(content_);
    card->setFrameShape(QFrame::StyledPanel);
    card->setObjectName(QStringLiteral("storyNote"));
    auto* cardLayout = new QVBoxLayout(card);
    cardLayout->setContentsMargins(8, 6, 8, 6);
    auto* top = new QHBoxLayout;
    const QDateTime date = QDateTime::fromSecsSinceEpoch(
        kReferenceEpoch + static_cast<qint64>(note.date), Qt::UTC);
    // Footnote notes carry no block; a cell's note points at its table.
    QString where = tr("Footnote");
    if (note.paragraphIndex >= 0) {
      const auto index = static_cast<std::size_t>(note.paragraphIndex);
      const bool table = index < story->blocks.size() &&
                         std::holds_alternative<Table>(story->blocks[index].kind);
      where = (table ? tr("Table, block %1") : tr("Paragraph %1")).arg(note.paragraphIndex + 1);
    }
    auto* place = new QLabel(
        tr("<b>%1</b><br><span style=\"color: gray\">%2</span>")
            .arg(where.toHtmlEscaped(),
                 QLocale().toString(date.toLocalTime(), QLocale::ShortFormat).toHtmlEscaped()),
        card);
    place->setWordWrap(true);
    auto* dismiss = new QPushButton(tr("Dismiss"), card);
    dismiss->setToolTip(tr("Remove this note; the story keeps the external text."));
    dismiss->setObjectName(QStringLiteral("dismissNote"));
    const Uuid noteID = note.id;
    connect(dismiss, &QPushButton::clicked, this,
            [this, storyID, noteID] { emit dismissRequested(storyID, noteID); });
    auto* useMine = new QPushButton(tr("Use Mine"), card);
    useMine->setToolTip(tr("Put your text back in place of the external text, and remove this "
                           "note."));
    useMine->setAccessibleName(tr("Use Mine"));
    useMine->setObjectName(QStringLiteral("useMine"));
    connect(useMine, &QPushButton::clicked, this,
            [this, storyID, noteID] { emit useMineRequested(storyID, noteID); });
    top->addWidget(place, 1);
    top->addWidget(useMine);
    top->addWidget(dismiss);
    cardLayout->addLayout(top);
    cardLayout->addWidget(new QLabel(tr("Yours (replaced):"), card));
    auto* local = wrappedLabel(QString::fromStdString(note.localText), card);
    local->setStyleSheet(QStringLiteral("QLabel { background: #fdf3e1; padding: 4px; }"));
    cardLayout->addWidget(local);
    cardLayout->addWidget(new QLabel(tr("External (kept):"), card));
    auto* external = wrappedLabel(QString::fromStdString(note.externalText), card);
    external->setStyleSheet(QStringLiteral("QLabel { background: #e8f1fb; padding: 4px; }"));
    cardLayout->addWidget(external);
    layout_->insertWidget(position++, card);
  }
}

}  // namespace inkharbour

#include "ui/footnotes_panel.h"

#include <algorithm>

#include <QLabel>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QTimer>
#include <QVBoxLayout>

#include "app/app_state.h"
#include "ui/edited_text.h"

namespace inkharbour {

namespace {

const Story* selectedStory(const AppState& state) {
  const auto index = state.selectedStoryIndex();
  return index ? &state.document().stories[*index] : nullptr;
}

QString rowText(const Footnote& footnote) {
  QString text = QString::fromStdString(footnote.text()).simplified();
  if (text.size() > 120) text = text.left(119) + QChar(0x2026);
  return QStringLiteral("%1  %2").arg(footnote.id).arg(text);
}

}  // namespace

FootnotesPanel::FootnotesPanel(AppState& state, QWidget* parent)
    : QWidget(parent),
      state_(state),
      list_(new QListWidget(this)),
      text_(new QPlainTextEdit(this)),
      empty_(new QLabel(tr("This story has no footnotes."), this)),
      commitTimer_(new QTimer(this)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(4, 4, 4, 4);
  layout->addWidget(empty_);
  layout->addWidget(list_, 2);
  layout->addWidget(text_, 1);
  empty_->setAlignment(Qt::AlignCenter);
  empty_->setEnabled(false);
  list_->setAccessibleName(tr("Footnotes"));
  text_->setPlaceholderText(tr("Select a footnote to edit its text."));
  text_->setAccessibleName(tr("Footnote text"));
  commitTimer_->setSingleShot(true);
  commitTimer_->setInterval(400);
  list_->hide();
  text_->hide();
  empty_->setText(tr("No story selected."));
  connect(list_, &QListWidget::currentRowChanged, this, [this] {
    if (updating_) return;
    commit();
    showSelected();
  });
  connect(text_, &QPlainTextEdit::textChanged, this, [this] {
    if (updating_) return;
    dirty_ = true;
    commitTimer_->start();
  });
  connect(commitTimer_, &QTimer::timeout, this, &FootnotesPanel::commit);
}

void FootnotesPanel::refresh() {
  const Story* story = selectedStory(state_);
  QString now;
  if (story != nullptr) {
    now = QString::fromStdString(story->id.string());
    for (const auto& footnote : story->footnotes) now += QChar(0x1e) + rowText(footnote);
  }
  if (now == shown_) return;
  const bool sameStory = story != nullptr && storyID_ == story->id;
  // A pending edit belongs to the footnote it was typed into.
  if (!sameStory && commitTimer_->isActive()) commit();
  shown_ = now;
  storyID_ = story ? std::optional<Uuid>(story->id) : std::nullopt;
  updating_ = true;
  const int row = sameStory ? list_->currentRow() : 0;
  list_->clear();
  if (story != nullptr) {
    for (const auto& footnote : story->footnotes) {
      auto* item = new QListWidgetItem(rowText(footnote), list_);
      item->setData(Qt::UserRole, QVariant::fromValue<qint64>(footnote.id));
      item->setToolTip(QString::fromStdString(footnote.text()));
    }
  }
  const bool any = list_->count() > 0;
  empty_->setText(story ? tr("This story has no footnotes.") : tr("No story selected."));
  empty_->setVisible(!any);
  list_->setVisible(any);
  text_->setVisible(any);
  if (any) list_->setCurrentRow(std::clamp(row, 0, list_->count() - 1));
  updating_ = false;
  // While the author types here, the text box is the truth: keep it.
  if (!(sameStory && text_->hasFocus() && dirty_)) showSelected();
}

void FootnotesPanel::showSelected() {
  updating_ = true;
  const Story* story = selectedStory(state_);
  QListWidgetItem* item = list_->currentItem();
  QString text;
  editing_.reset();
  dirty_ = false;
  if (story != nullptr && item != nullptr) {
    const auto id = item->data(Qt::UserRole).toLongLong();
    editing_ = id;
    for (const auto& footnote : story->footnotes) {
      if (footnote.id == id) text = QString::fromStdString(footnote.text());
    }
  }
  if (text_->toPlainText() != text) text_->setPlainText(text);
  text_->setEnabled(item != nullptr);
  updating_ = false;
}

void FootnotesPanel::commit() {
  commitTimer_->stop();
  if (!dirty_ || !storyID_ || !editing_) return;
  dirty_ = false;
  const auto& stories = state_.document().stories;
  const auto found = std::find_if(stories.begin(), stories.end(),
                                  [&](const Story& story) { return story.id == *storyID_; });
  if (found == stories.end()) return;
  const Story* story = &*found;
  for (const auto& footnote : story->footnotes) {
    if (footnote.id != *editing_) continue;
    const QString text = text_->toPlainText();
    if (QString::fromStdString(footnote.text()) == text) return;
    Footnote edited{.id = footnote.id, .paragraphs = editedParagraphs(footnote.paragraphs, text)};
    emit footnoteEdited(story->id, edited);
    return;
  }
}

}  // namespace inkharbour

#include "ui/find_bar.h"

#include <QCheckBox>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QStyle>
#include <QToolButton>
#include <QVBoxLayout>

#include "editor/story_editor.h"

namespace inkharbour {

FindBar::FindBar(StoryEditor& editor, QWidget* parent)
    : QWidget(parent),
      editor_(editor),
      field_(new QLineEdit(this)),
      matchCase_(new QCheckBox(tr("Match case"), this)),
      count_(new QLabel(this)),
      replaceRow_(new QWidget(this)),
      replacement_(new QLineEdit(replaceRow_)) {
  auto* rows = new QVBoxLayout(this);
  rows->setContentsMargins(6, 3, 6, 3);
  rows->setSpacing(3);
  auto* layout = new QHBoxLayout;
  rows->addLayout(layout);
  rows->addWidget(replaceRow_);
  auto* label = new QLabel(tr("Find:"), this);
  label->setBuddy(field_);
  field_->setPlaceholderText(tr("Find in story"));
  field_->setClearButtonEnabled(true);
  field_->setAccessibleName(tr("Find in story"));
  auto* previous = new QToolButton(this);
  previous->setArrowType(Qt::UpArrow);
  previous->setToolTip(tr("Previous (Shift+F3)"));
  auto* next = new QToolButton(this);
  next->setArrowType(Qt::DownArrow);
  next->setToolTip(tr("Next (F3)"));
  auto* closeButton = new QToolButton(this);
  closeButton->setIcon(style()->standardIcon(QStyle::SP_TitleBarCloseButton));
  closeButton->setToolTip(tr("Close (Esc)"));
  closeButton->setAutoRaise(true);
  count_->setMinimumWidth(fontMetrics().horizontalAdvance(tr("No matches")) + 8);
  layout->addWidget(label);
  layout->addWidget(field_, 1);
  layout->addWidget(previous);
  layout->addWidget(next);
  layout->addWidget(matchCase_);
  layout->addWidget(count_);
  layout->addWidget(closeButton);
  auto* replaceLayout = new QHBoxLayout(replaceRow_);
  replaceLayout->setContentsMargins(0, 0, 0, 0);
  auto* replaceLabel = new QLabel(tr("Replace:"), replaceRow_);
  replaceLabel->setBuddy(replacement_);
  replaceLabel->setMinimumWidth(label->sizeHint().width());
  replacement_->setPlaceholderText(tr("Replace with"));
  replacement_->setAccessibleName(tr("Replace with"));
  auto* replaceOne = new QPushButton(tr("Replace"), replaceRow_);
  auto* replaceEvery = new QPushButton(tr("Replace All"), replaceRow_);
  replaceLayout->addWidget(replaceLabel);
  replaceLayout->addWidget(replacement_, 1);
  replaceLayout->addWidget(replaceOne);
  replaceLayout->addWidget(replaceEvery);
  replaceRow_->hide();
  connect(replaceOne, &QPushButton::clicked, this, &FindBar::replace);
  connect(replaceEvery, &QPushButton::clicked, this, &FindBar::replaceAll);
  connect(replacement_, &QLineEdit::returnPressed, this, &FindBar::replace);
  connect(field_, &QLineEdit::textChanged, this, &FindBar::updateHighlight);
  connect(field_, &QLineEdit::returnPressed, this, &FindBar::findNext);
  connect(matchCase_, &QCheckBox::toggled, this, &FindBar::updateHighlight);
  connect(previous, &QToolButton::clicked, this, &FindBar::findPrevious);
  connect(next, &QToolButton::clicked, this, &FindBar::findNext);
  connect(closeButton, &QToolButton::clicked, this, &FindBar::close);
  hide();
}

void FindBar::open() {
  const QString selected = editor_.textCursor().selectedText();
  if (!selected.isEmpty() && !selected.contains(QChar::ParagraphSeparator)) {
    field_->setText(selected);
  }
  show();
  field_->setFocus();
  field_->selectAll();
  updateHighlight();
}

void FindBar::openReplace() {
  replaceRow_->show();
  open();
}

void FindBar::replace() {
  if (field_->text().isEmpty()) return;
  emit replacing(tr("Replace"));
  editor_.replaceSelection(field_->text(), replacement_->text(), matchCase_->isChecked());
  updateHighlight();
}

void FindBar::replaceAll() {
  if (field_->text().isEmpty()) return;
  emit replacing(tr("Replace All"));
  const int replaced =
      editor_.replaceAll(field_->text(), replacement_->text(), matchCase_->isChecked());
  updateHighlight();
  count_->setText(replaced == 1 ? tr("1 replaced")
                                : tr("%1 replaced").arg(QLocale().toString(replaced)));
}

void FindBar::showFor(const QString& text, bool caseSensitive) {
  field_->setText(text);
  matchCase_->setChecked(caseSensitive);
  show();
  updateHighlight();
}

void FindBar::close() {
  hide();
  replaceRow_->hide();
  editor_.highlight(QString(), false);
  editor_.setFocus();
}

void FindBar::findNext() {
  find(false);
}

void FindBar::findPrevious() {
  find(true);
}

void FindBar::find(bool backward) {
  if (field_->text().isEmpty()) {
    open();
    return;
  }
  if (!isVisible()) {
    show();
    updateHighlight();
  }
  const bool found = editor_.find(field_->text(), backward, matchCase_->isChecked());
  if (!found) count_->setText(tr("No matches"));
}

void FindBar::updateHighlight() {
  if (!isVisible()) return;
  editor_.highlight(field_->text(), matchCase_->isChecked());
  const int hits = editor_.highlightCount();
  if (field_->text().isEmpty()) {
    count_->clear();
  } else if (hits == 0) {
    count_->setText(tr("No matches"));
  } else {
    count_->setText(hits == 1 ? tr("1 match") : tr("%1 matches").arg(QLocale().toString(hits)));
  }
}

void FindBar::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) {
    close();
    return;
  }
  QWidget::keyPressEvent(event);
}

}  // namespace inkharbour

#include "ui/editor_header.h"

#include <QAction>
#include <QDir>
#include <QHBoxLayout>
#include <QLabel>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/app_state.h"
#include "ui/icons.h"
#include "ui/merge_forecaster.h"

namespace inkharbour {

namespace {

QToolButton* actionButton(QAction* action, QWidget* parent) {
  auto* button = new QToolButton(parent);
  button->setDefaultAction(action);
  button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  return button;
}

}  // namespace

EditorHeader::EditorHeader(AppState& state, QAction* updateLink, QAction* relink,
                           QAction* pushEdits, QAction* review, QWidget* parent)
    : QWidget(parent),
      state_(state),
      name_(new QLabel(this)),
      path_(new QLabel(this)),
      statusIcon_(new QLabel(this)),
      status_(new QLabel(this)),
      forecast_(new QLabel(this)),
      update_(actionButton(updateLink, this)),
      relink_(actionButton(relink, this)),
      push_(actionButton(pushEdits, this)),
      review_(actionButton(review, this)) {
  QFont nameFont = name_->font();
  nameFont.setPointSizeF(nameFont.pointSizeF() * 1.35);
  nameFont.setBold(true);
  name_->setFont(nameFont);
  name_->setTextFormat(Qt::PlainText);
  path_->setTextFormat(Qt::PlainText);
  path_->setTextInteractionFlags(Qt::TextSelectableByMouse);
  path_->setForegroundRole(QPalette::PlaceholderText);
  path_->setMinimumWidth(40);
  path_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  QFont forecastFont = forecast_->font();
  forecastFont.setPointSizeF(forecastFont.pointSizeF() * 0.9);
  forecast_->setFont(forecastFont);
  forecast_->setTextFormat(Qt::PlainText);
  forecast_->setForegroundRole(QPalette::PlaceholderText);
  auto* text = new QVBoxLayout;
  text->setSpacing(1);
  text->addWidget(name_);
  text->addWidget(path_);
  auto* layout = new QHBoxLayout(this);
  layout->setContentsMargins(10, 6, 10, 6);
  layout->addLayout(text, 1);
  layout->addWidget(statusIcon_);
  layout->addWidget(status_);
  layout->addWidget(forecast_);
  layout->addSpacing(8);
  layout->addWidget(review_);
  layout->addWidget(update_);
  layout->addWidget(relink_);
  layout->addWidget(push_);
  name_->setAccessibleName(tr("Story name"));
  path_->setAccessibleName(tr("Linked file"));
  statusIcon_->setAccessibleName(tr("Link status"));
  status_->setAccessibleName(tr("Link status"));
  forecast_->setObjectName(QStringLiteral("linkForecast"));
  forecast_->setAccessibleName(tr("Update Link forecast"));
  setAutoFillBackground(true);
  setBackgroundRole(QPalette::AlternateBase);
}

void EditorHeader::refresh() {
  const auto index = state_.selectedStoryIndex();
  if (!index) {
    hide();
    return;
  }
  show();
  const Story& story = state_.document().stories[*index];
  name_->setText(QString::fromStdString(story.name));
  fullPath_ = story.link ? QDir::toNativeSeparators(QString::fromStdString(story.link->path))
                         : tr("Not linked to a file");
  path_->setToolTip(fullPath_);
  elidePath();
  const auto found = state_.linkStatuses().find(story.id);
  const bool hasStatus = found != state_.linkStatuses().end();
  if (hasStatus) {
    statusIcon_->setPixmap(Icons::status(found->second).pixmap(16, 16));
    status_->setText(Icons::statusWord(found->second));
  } else {
    statusIcon_->clear();
    status_->setText(story.link ? tr("Checking…") : QString());
  }
  statusIcon_->setVisible(hasStatus);
  const auto forecast = forecaster_ != nullptr ? forecaster_->forecast(story.id) : std::nullopt;
  forecast_->setText(forecast.value_or(QString()));
  forecast_->setToolTip(forecast ? tr("What Update Link would do now") : QString());
  forecast_->setVisible(forecast.has_value());
  update_->setVisible(hasStatus && found->second == LinkStatus::modified);
  relink_->setVisible(hasStatus && found->second == LinkStatus::missing);
  // Word and text links take a push; Excel links are one-way.
  push_->setVisible(story.link && story.link->kind != LinkKind::excel);
  review_->setVisible(!story.lastMergeReport.empty());
}

void EditorHeader::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  elidePath();
}

void EditorHeader::elidePath() {
  path_->setText(path_->fontMetrics().elidedText(fullPath_, Qt::ElideMiddle,
                                                 std::max(40, path_->width())));
}

}  // namespace inkharbour

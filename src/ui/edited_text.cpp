#include "ui/edited_text.h"

#include <QStringList>

namespace inkharbour {

QString plainText(const std::vector<Paragraph>& paragraphs) {
  QStringList lines;
  for (const auto& paragraph : paragraphs) lines << QString::fromStdString(paragraph.text());
  return lines.join(QLatin1Char('\n'));
}

std::vector<Paragraph> editedParagraphs(const std::vector<Paragraph>& old, const QString& text) {
  std::vector<Paragraph> out;
  if (text.isEmpty()) return out;
  const QStringList lines = text.split(QLatin1Char('\n'));
  for (qsizetype i = 0; i < lines.size(); ++i) {
    const std::string line = lines[i].toStdString();
    const auto index = static_cast<std::size_t>(i);
    if (index < old.size() && old[index].text() == line) {
      out.push_back(old[index]);
    } else {
      out.push_back(Paragraph::make(index < old.size() ? old[index].styleName : "Body", line));
    }
  }
  return out;
}

}  // namespace inkharbour

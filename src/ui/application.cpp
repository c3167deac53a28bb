#include "ui/application.h"

#include <QApplication>
#include <QFileInfo>
#include <QStringList>

#include "app/app_state.h"
#include "ui/dialogs.h"
#include "ui/main_window.h"

namespace inkharbour {

int runApplication(int argc, char** argv) {
  QApplication application(argc, argv);
  QApplication::setApplicationName(QStringLiteral("Inkharbour"));
  QApplication::setOrganizationName(QStringLiteral("Inkharbour"));
  QApplication::setApplicationDisplayName(QStringLiteral("Inkharbour"));

  AppState state;
  QtDialogs dialogs;
  MainWindow window(state, dialogs);

  // Qt has taken its own options out of the list by now; a stray "--dump"
  // without a path, or any other option, is ignored.
  QString document;
  QStringList files;
  const QStringList arguments = QApplication::arguments().mid(1);
  for (const QString& argument : arguments) {
    if (argument.startsWith(QLatin1Char('-'))) continue;
    const QString suffix = QFileInfo(argument).suffix().toLower();
    const bool isDocument = suffix == QLatin1String("inkharbour") ||
                            suffix == QLatin1String("quillmoor") ||
                            suffix == QLatin1String("tidecopy");
    if (isDocument && document.isEmpty()) {
      document = argument;
    } else {
      files << argument;
    }
  }
  window.show();
  if (!document.isEmpty()) {
    window.openDocumentFile(document);
  } else {
    window.offerUntitledRecovery();
  }
  if (!files.isEmpty()) window.placeFiles(files);
  return QApplication::exec();
}

}  // namespace inkharbour

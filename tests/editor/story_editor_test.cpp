#include <QtTest>
class Placeholder : public QObject { Q_OBJECT };
QTEST_MAIN(Placeholder)
#include "story_editor_test.moc"

#include <QtTest>
class Placeholder : public QObject { Q_OBJECT };
QTEST_MAIN(Placeholder)
#include "text_bridge_test.moc"

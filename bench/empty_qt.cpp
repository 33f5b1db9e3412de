// An empty program with Qt Core and Network: the baseline for start-up.
#include <QtCore/QCoreApplication>
#include <QtCore/QTimer>

int main(int argc, char** argv)
{
    QCoreApplication tApp(argc, argv);
    QTimer::singleShot(0, &tApp, &QCoreApplication::quit);
    return QCoreApplication::exec();
}

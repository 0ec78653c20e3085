#include "MainWindow.h"

#include <QApplication>

int main(int argc, char **argv)
{
    QApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setStyle(QStringLiteral("Fusion")); // looks the same on every system
    const QApplication application(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Velmora Desktop"));
    MainWindow window;
    window.show();
    window.signIn();
    return QApplication::exec();
}

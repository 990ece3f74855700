// The main queue in Qt's event loop.
#include "Greeting.h"

#include <QCoreApplication>
#include <QSocketNotifier>

int main(int argc, char** argv) {
    QCoreApplication application(argc, argv);
    Greeting greeting(argc, argv, [](int result) { QCoreApplication::exit(result); });
    auto const queue = greeting.queue();

    QSocketNotifier notifier(queue->fd(), QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, [&] { queue->poll(); });
    return QCoreApplication::exec();
}

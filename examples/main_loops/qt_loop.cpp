// The core in a Qt 6 event loop. A program with windows has a QApplication in its place.

#include <QVPlatform/Dispatch/MainQueue.h>

#include <QCoreApplication>
#include <QSocketNotifier>

#include "main_loops/OneHit.h"

int main(int argumentCount, char** arguments) {
  const int termination = openTermination();
  QCoreApplication application(argumentCount, arguments);
  auto& mainQueue = QVPlatform::MainQueue::mainQueue();
  QSocketNotifier queue(mainQueue.fileDescriptor(), QSocketNotifier::Read);
  QObject::connect(&queue, &QSocketNotifier::activated, [&mainQueue] { mainQueue.drain(); });
  QSocketNotifier signal(termination, QSocketNotifier::Read);
  QObject::connect(&signal, &QSocketNotifier::activated, &QCoreApplication::quit);

  OneHit hit(argumentCount, arguments, [] { QCoreApplication::quit(); });
  QCoreApplication::exec();
  return hit.end();
}

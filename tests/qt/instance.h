// One run of the instance program and what it has said.
#pragma once

#include <QCoreApplication>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include "tests/qt/send_signal.h"

namespace zunto::testing {

class Instance {
 public:
  Instance(const QProcessEnvironment& environment, const QStringList& arguments = {}) {
    process_.setProcessEnvironment(environment);
    process_.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process_.start(QCoreApplication::applicationDirPath() + QLatin1String("/instance_program"), arguments);
    process_.waitForStarted();
  }
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;
  ~Instance() {
    process_.kill();
    process_.waitForFinished();
  }

  [[nodiscard]] QStringList said() {
    said_ += QString::fromUtf8(process_.readAllStandardOutput());
    return said_.split(QLatin1Char('\n'), Qt::SkipEmptyParts);
  }
  [[nodiscard]] bool hasSaid(const char* line) { return said().contains(QString::fromUtf8(line)); }
  [[nodiscard]] bool hasEnded() const { return process_.state() == QProcess::NotRunning; }
  [[nodiscard]] int exitCode() const {
    return process_.exitStatus() == QProcess::NormalExit ? process_.exitCode() : -1;
  }
  void signal(int number) const { sendSignal(process_, number); }

 private:
  QProcess process_;
  QString said_;
};

}  // namespace zunto::testing

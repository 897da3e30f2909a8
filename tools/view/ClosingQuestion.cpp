#include "tools/view/ClosingQuestion.h"

#include <QCoreApplication>
#include <QMessageBox>
#include <QPushButton>

namespace mediaworker::view {

namespace {

QString tr(const char* text) {
    return QCoreApplication::translate("ClosingQuestion", text);
}

} // namespace

bool asksToFinish(QWidget* window, int running) {
    QMessageBox question(QMessageBox::Question, tr("Recordings run"),
                         running == 1 ? tr("A recording runs.") : tr("%1 recordings run.").arg(running),
                         QMessageBox::NoButton, window);
    QPushButton* const finish =
        question.addButton(tr("Finish the recordings and quit"), QMessageBox::AcceptRole);
    QPushButton* const goOn = question.addButton(tr("Keep recording"), QMessageBox::RejectRole);
    finish->setObjectName(QStringLiteral("finishAndQuit"));
    goOn->setObjectName(QStringLiteral("keepRecording"));
    question.setDefaultButton(goOn);
    question.setEscapeButton(goOn);
    question.exec();
    return question.clickedButton() == finish;
}

} // namespace mediaworker::view

#pragma once

#include <QAbstractButton>
#include <QApplication>
#include <QDialog>
#include <QInputDialog>
#include <QMessageBox>
#include <QPointer>
#include <QTest>
#include <QTimer>

#include <functional>

// Answers the modal dialogs a window opens, in order, from within the event loop each runs: a
// test scripts "type this, click Yes" without a person at the keyboard. What each box said is kept.
class ModalScript : public QObject
{
public:
    using Answer = std::function<void(QWidget *)>;

    explicit ModalScript(QList<Answer> answers)
        : m_answers(std::move(answers))
    {
        connect(&m_timer, &QTimer::timeout, this, [this] {
            QWidget *modal = QApplication::activeModalWidget();
            if (!modal || modal == m_last || m_answers.isEmpty())
                return;
            m_last = modal;
            titles << modal->windowTitle();
            if (auto *box = qobject_cast<QMessageBox *>(modal))
                texts << box->text();
            m_answers.takeFirst()(modal);
        });
        m_timer.start(5);
    }
    bool done() const { return m_answers.isEmpty(); }

    static Answer text(const QString &value)
    {
        return [value](QWidget *modal) {
            auto *dialog = qobject_cast<QInputDialog *>(modal);
            QVERIFY(dialog);
            dialog->setTextValue(value);
            dialog->accept();
        };
    }
    static Answer number(double value)
    {
        return [value](QWidget *modal) {
            auto *dialog = qobject_cast<QInputDialog *>(modal);
            QVERIFY(dialog);
            dialog->setDoubleValue(value);
            dialog->accept();
        };
    }
    static Answer button(QMessageBox::StandardButton which)
    {
        return [which](QWidget *modal) {
            auto *box = qobject_cast<QMessageBox *>(modal);
            QVERIFY(box);
            box->button(which)->click();
        };
    }
    static Answer accept()
    {
        return [](QWidget *modal) { static_cast<QDialog *>(modal)->accept(); };
    }
    static Answer reject()
    {
        return [](QWidget *modal) { static_cast<QDialog *>(modal)->reject(); };
    }

    QStringList titles;
    QStringList texts;

private:
    QList<Answer> m_answers;
    QTimer m_timer;
    QPointer<QWidget> m_last;
};

#include "app/identity.h"
#include "app/loop_probe.h"
#include "app/termination_signals.h"
#include "providers/secret_mask.h"
#include "ui/main_window.h"

#include <QApplication>
#include <QPlainTextEdit>
#include <QStatusBar>

int main(int argc, char *argv[])
{
    // Before anything can log: no message and no crash report prints a key.
    installSecretMaskingMessageHandler();
    QApplication app(argc, argv);
    applyApplicationIdentity(app);

    int exitCode = 0;
    {
        MainWindow window;
        window.setWindowIcon(applicationIcon());
        // Ended from outside, the terminal closes as if the user had closed its window.
        TerminationSignals termination([&window] {
            if (window.close())
                QCoreApplication::quit();
        });
        const std::unique_ptr<LoopProbe> probe = LoopProbe::fromEnvironment();
        if (probe) {
            // What the window said while it was being built is in its event console already.
            if (const auto *console =
                        window.findChild<QPlainTextEdit *>(QStringLiteral("eventConsole"))) {
                for (const QString &line : console->toPlainText().split(QLatin1Char('\n')))
                    probe->noteMessage(line.section(QStringLiteral("] "), 1));
            }
            QObject::connect(window.statusBar(), &QStatusBar::messageChanged, probe.get(),
                             &LoopProbe::noteMessage);
        }
        window.show();
        exitCode = app.exec();
    } // the window goes before the application object
    return exitCode;
}

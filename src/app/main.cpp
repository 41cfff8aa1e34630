#include "app/identity.h"
#include "providers/secret_mask.h"
#include "ui/main_window.h"

#include <QApplication>

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
        window.show();
        exitCode = app.exec();
    } // the window goes before the application object
    return exitCode;
}

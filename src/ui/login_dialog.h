#pragma once

#include <QDialog>

#include <functional>

class QLabel;
class QLineEdit;
class QPushButton;

// The "Querlin Login" dialog: e-mail and password, the browser sign-in and the registration link.
// The window gives it the three actions; the dialog closes accepted once one of them signs in, and
// shows the failure text otherwise.
class LoginDialog : public QDialog
{
    Q_OBJECT

public:
    struct Actions
    {
        // Each returns an empty text when a session was accepted, else the failure text.
        std::function<QString(const QString &email, const QString &password)> login;
        std::function<QString()> loginWithGoogle;
        std::function<void()> createAccount;
        // Asked while the browser sign-in waits: stop it now.
        std::function<void()> cancelGoogle;
    };

    LoginDialog(Actions actions, QWidget *parent = nullptr);

    QLineEdit *emailField() const { return m_email; }
    QLineEdit *passwordField() const { return m_password; }
    QLabel *statusLabel() const { return m_status; }
    QPushButton *loginButton() const { return m_login; }
    QPushButton *googleButton() const { return m_google; }
    void showStatus(const QString &text);

protected:
    void reject() override;

private:
    void runLogin();
    void runGoogle();
    void setBusy(bool busy);

    Actions m_actions;
    QLineEdit *m_email = nullptr;
    QLineEdit *m_password = nullptr;
    QLabel *m_status = nullptr;
    QPushButton *m_create = nullptr;
    QPushButton *m_google = nullptr;
    QPushButton *m_cancel = nullptr;
    QPushButton *m_login = nullptr;
    bool m_googleRunning = false;
};

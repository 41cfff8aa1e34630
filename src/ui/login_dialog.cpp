#include "ui/login_dialog.h"

#include "app/language.h"

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPointer>
#include <QPushButton>
#include <QVBoxLayout>

LoginDialog::LoginDialog(Actions actions, QWidget *parent)
    : QDialog(parent)
    , m_actions(std::move(actions))
{
    setObjectName(QStringLiteral("loginDialog"));
    setWindowTitle(translated(QStringLiteral("Querlin Login"), QStringLiteral("Login Querlin")));
    resize(560, 280);
    auto *layout = new QVBoxLayout(this);
    auto *heading = new QLabel(QStringLiteral("Querlin"), this);
    heading->setObjectName(QStringLiteral("terminalTitle"));
    layout->addWidget(heading);

    auto *form = new QFormLayout;
    m_email = new QLineEdit(this);
    m_email->setObjectName(QStringLiteral("loginEmail"));
    m_email->setPlaceholderText(QStringLiteral("you@example.com"));
    m_password = new QLineEdit(this);
    m_password->setObjectName(QStringLiteral("loginPassword"));
    m_password->setEchoMode(QLineEdit::Password);
    form->addRow(translated(QStringLiteral("Email"), QStringLiteral("E-mail")), m_email);
    form->addRow(translated(QStringLiteral("Password"), QStringLiteral("Senha")), m_password);
    layout->addLayout(form);

    m_status = new QLabel(this);
    m_status->setObjectName(QStringLiteral("loginStatus"));
    m_status->setWordWrap(true);
    m_status->setTextFormat(Qt::PlainText);
    layout->addWidget(m_status);
    layout->addStretch(1);

    auto *buttons = new QHBoxLayout;
    m_create = new QPushButton(
            translated(QStringLiteral("Create account"), QStringLiteral("Criar conta")), this);
    m_google = new QPushButton(
            translated(QStringLiteral("Sign in with Google"), QStringLiteral("Entrar com Google")),
            this);
    m_cancel =
            new QPushButton(translated(QStringLiteral("Cancel"), QStringLiteral("Cancelar")), this);
    m_login = new QPushButton(translated(QStringLiteral("Login"), QStringLiteral("Entrar")), this);
    m_login->setDefault(true);
    buttons->addWidget(m_create);
    buttons->addWidget(m_google);
    buttons->addStretch(1);
    buttons->addWidget(m_cancel);
    buttons->addWidget(m_login);
    layout->addLayout(buttons);

    connect(m_login, &QPushButton::clicked, this, &LoginDialog::runLogin);
    connect(m_password, &QLineEdit::returnPressed, this, &LoginDialog::runLogin);
    connect(m_google, &QPushButton::clicked, this, &LoginDialog::runGoogle);
    connect(m_cancel, &QPushButton::clicked, this, &LoginDialog::reject);
    connect(m_create, &QPushButton::clicked, this, [this] {
        if (m_actions.createAccount)
            m_actions.createAccount();
    });
}

void LoginDialog::showStatus(const QString &text)
{
    m_status->setText(text);
}

void LoginDialog::setBusy(bool busy)
{
    for (QWidget *widget : {static_cast<QWidget *>(m_email), static_cast<QWidget *>(m_password),
                            static_cast<QWidget *>(m_login), static_cast<QWidget *>(m_google),
                            static_cast<QWidget *>(m_create)})
        widget->setEnabled(!busy);
}

void LoginDialog::runLogin()
{
    if (!m_actions.login || !m_login->isEnabled())
        return;
    showStatus(translated(QStringLiteral("Logging in..."), QStringLiteral("Entrando...")));
    setBusy(true);
    QPointer<LoginDialog> self(this);
    const QString failure = m_actions.login(m_email->text().trimmed(), m_password->text());
    if (!self)
        return; // closed while the request waited
    setBusy(false);
    if (failure.isEmpty()) {
        accept();
        return;
    }
    showStatus(failure);
}

void LoginDialog::runGoogle()
{
    if (!m_actions.loginWithGoogle || m_googleRunning)
        return;
    m_googleRunning = true;
    setBusy(true);
    QPointer<LoginDialog> self(this);
    const QString failure = m_actions.loginWithGoogle();
    if (!self)
        return;
    m_googleRunning = false;
    setBusy(false);
    if (failure.isEmpty()) {
        accept();
        return;
    }
    showStatus(failure);
}

void LoginDialog::reject()
{
    // Cancel stops a browser sign-in at once; the dialog closes when it has stopped.
    if (m_googleRunning && m_actions.cancelGoogle)
        m_actions.cancelGoogle();
    QDialog::reject();
}

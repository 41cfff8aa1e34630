#pragma once

#include <QByteArray>
#include <QString>

// The service's few HTML pages, in English or Portuguese. Everything echoed back is escaped.
namespace account {

enum class PageState {
    Form,
    Done
};

// google_start.php: the page that approves a terminal's device code with the Querlin account.
QByteArray deviceSignInPage(const QString &lang, const QString &device, const QString &email,
                            const QString &problem, PageState state);

// login_page.php: the registration form and its confirmation.
QByteArray registrationPage(const QString &lang, const QString &email, const QString &firstName,
                            const QString &problem, PageState state);

// A plain page with one message, for refusals outside the forms.
QByteArray messagePage(const QString &lang, const QString &title, const QString &message);

} // namespace account

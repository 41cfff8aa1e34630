#include "account/pages.h"

namespace account {

namespace {

QString tr2(const QString &lang, const char *english, const char *portuguese)
{
    return QString::fromUtf8(lang == QLatin1String("pt") ? portuguese : english);
}

QString escaped(const QString &text)
{
    return text.toHtmlEscaped().replace(QLatin1Char('\''), QLatin1String("&#39;"));
}

QByteArray document(const QString &lang, const QString &title, const QString &body)
{
    const QString html =
            QStringLiteral(
                    "<!DOCTYPE html>\n<html lang=\"%1\"><head><meta charset=\"utf-8\">"
                    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                    "<title>%2</title><style>"
                    "body{font-family:sans-serif;background:#10181a;color:#d8e6e3;max-width:32em;"
                    "margin:3em auto;padding:0 1em}"
                    "label{display:block;margin:.8em 0 "
                    ".2em}input{width:100%;padding:.4em;box-sizing:"
                    "border-box}button{margin-top:1.2em;padding:.5em "
                    "1.4em;background:#f3b24a;border:0}"
                    ".problem{color:#f45d5d}.note{color:#f2c078;font-size:.9em}"
                    "</style></head><body><h1>Querlin</h1><h2>%2</h2>%3</body></html>\n")
                    .arg(lang == QLatin1String("pt") ? QStringLiteral("pt-BR")
                                                     : QStringLiteral("en"),
                         escaped(title), body);
    return html.toUtf8();
}

QString problemLine(const QString &problem)
{
    return problem.isEmpty() ? QString()
                             : QStringLiteral("<p class=\"problem\">%1</p>").arg(escaped(problem));
}

QString field(const QString &label, const QString &name, const QString &type,
              const QString &value = {})
{
    return QStringLiteral("<label for=\"%1\">%2</label>"
                          "<input id=\"%1\" name=\"%1\" type=\"%3\" value=\"%4\">")
            .arg(name, escaped(label), type, escaped(value));
}

} // namespace

QByteArray deviceSignInPage(const QString &lang, const QString &device, const QString &email,
                            const QString &problem, PageState state)
{
    const QString title = tr2(lang, "Sign in to the terminal", "Entrar no terminal");
    if (state == PageState::Done) {
        return document(lang, title,
                        QStringLiteral("<p>%1</p>")
                                .arg(escaped(tr2(lang,
                                                 "The terminal is signed in. You can close this "
                                                 "page and return to it.",
                                                 "O terminal está conectado. Você pode fechar "
                                                 "esta página e voltar a ele."))));
    }
    const QString note = tr2(
            lang,
            "Signing in with a Google account needs OAuth client credentials that a deployment "
            "configures; this service does not include them. Sign in with your Querlin account "
            "instead: the terminal that opened this page is signed in once you confirm.",
            "Entrar com uma conta Google exige credenciais de cliente OAuth configuradas por cada "
            "instalação; este serviço não as inclui. Entre com sua conta Querlin: o terminal que "
            "abriu esta página fica conectado assim que você confirmar.");
    const QString body =
            QStringLiteral("<p class=\"note\">%1</p>%2"
                           "<form method=\"post\" action=\"google_start.php\">"
                           "<input type=\"hidden\" name=\"device\" value=\"%3\">"
                           "<input type=\"hidden\" name=\"lang\" value=\"%4\">%5%6"
                           "<button type=\"submit\">%7</button></form>")
                    .arg(escaped(note), problemLine(problem), escaped(device), escaped(lang),
                         field(tr2(lang, "Email", "E-mail"), QStringLiteral("email"),
                               QStringLiteral("email"), email),
                         field(tr2(lang, "Password", "Senha"), QStringLiteral("password"),
                               QStringLiteral("password")),
                         escaped(tr2(lang, "Sign in", "Entrar")));
    return document(lang, title, body);
}

QByteArray registrationPage(const QString &lang, const QString &email, const QString &firstName,
                            const QString &problem, PageState state)
{
    const QString title = tr2(lang, "Create your Querlin account", "Crie sua conta Querlin");
    if (state == PageState::Done) {
        return document(lang, title,
                        QStringLiteral("<p>%1</p>")
                                .arg(escaped(tr2(lang,
                                                 "Your account was created. Sign in from the "
                                                 "terminal with %1.",
                                                 "Sua conta foi criada. Entre pelo terminal com "
                                                 "%1.")
                                                     .arg(email))));
    }
    const QString body =
            QStringLiteral("%1<form method=\"post\" action=\"login_page.php\">"
                           "<input type=\"hidden\" name=\"lang\" value=\"%2\">%3%4%5%6"
                           "<p class=\"note\">%7</p><button type=\"submit\">%8</button></form>")
                    .arg(problemLine(problem), escaped(lang),
                         field(tr2(lang, "First name", "Nome"), QStringLiteral("first_name"),
                               QStringLiteral("text"), firstName),
                         field(tr2(lang, "Email", "E-mail"), QStringLiteral("email"),
                               QStringLiteral("email"), email),
                         field(tr2(lang, "Password", "Senha"), QStringLiteral("password"),
                               QStringLiteral("password")),
                         field(tr2(lang, "Password again", "Repita a senha"),
                               QStringLiteral("password2"), QStringLiteral("password")),
                         escaped(tr2(lang, "At least 8 characters.", "Pelo menos 8 caracteres.")),
                         escaped(tr2(lang, "Create account", "Criar conta")));
    return document(lang, title, body);
}

QByteArray messagePage(const QString &lang, const QString &title, const QString &message)
{
    return document(lang, title, QStringLiteral("<p>%1</p>").arg(escaped(message)));
}

} // namespace account

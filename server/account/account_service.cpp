#include "account/account_service.h"

#include "account/pages.h"
#include "account/request_readers.h"

#include <QAbstractHttpServer>
#include <QDateTime>
#include <QElapsedTimer>
#include <QFile>
#include <QHttpServerRequest>
#include <QHttpServerResponder>
#include <QHttpServerResponse>
#include <QJsonArray>
#include <QtNetwork/qtnetworkglobal.h>
#if QT_CONFIG(ssl)
#include <QSslCertificate>
#include <QSslKey>
#endif

#include <cstdio>

namespace {

using Method = QHttpServerRequest::Method;
using Status = QHttpServerResponse::StatusCode;

constexpr qint64 kFailureWindowMs = 15 * 60 * 1000;
constexpr int kFailuresPerEmail = 5;
// Several people may share one address (an office, a carrier's NAT), so it gets more room.
constexpr int kFailuresPerAddress = 20;
constexpr qint64 kMinBodyLimit = 4 * 1024 * 1024;
constexpr int kMinPasswordLength = 8;

QHttpServerResponse failure(const QString &code, Status status)
{
    return QHttpServerResponse(
            QJsonObject{{QStringLiteral("ok"), false}, {QStringLiteral("error"), code}}, status);
}

QHttpServerResponse page(const QByteArray &html, Status status = Status::Ok)
{
    return QHttpServerResponse(QByteArrayLiteral("text/html; charset=utf-8"), html, status);
}

QByteArray header(const QHttpServerRequest &request, const QByteArray &name)
{
    for (const auto &[key, value] : request.headers()) {
        if (key.compare(name, Qt::CaseInsensitive) == 0)
            return value;
    }
    return {};
}

const char *methodName(Method method)
{
    switch (method) {
    case Method::Get:
        return "GET";
    case Method::Put:
        return "PUT";
    case Method::Delete:
        return "DELETE";
    case Method::Post:
        return "POST";
    case Method::Head:
        return "HEAD";
    case Method::Options:
        return "OPTIONS";
    case Method::Patch:
        return "PATCH";
    case Method::Connect:
        return "CONNECT";
    case Method::Trace:
        return "TRACE";
    default:
        return "?";
    }
}

bool plausibleEmail(const QString &email)
{
    const qsizetype at = email.indexOf(QLatin1Char('@'));
    return email.size() <= 254 && at > 0 && at < email.size() - 1 &&
           !email.contains(QLatin1Char(' '));
}

QString text(const QString &lang, const char *english, const char *portuguese)
{
    return QString::fromUtf8(lang == QLatin1String("pt") ? portuguese : english);
}

} // namespace

// The socket side: hands each request to the service and logs one line for it. Tokens live in
// headers and bodies, so only the method, the path, the status and the time are written.
class AccountService::HttpFront : public QAbstractHttpServer
{
public:
    explicit HttpFront(AccountService *service)
        : m_service(service)
    {}

protected:
    bool handleRequest(const QHttpServerRequest &request, QTcpSocket *socket) override
    {
        QElapsedTimer timer;
        timer.start();
        const QHttpServerResponse response = m_service->respond(request);
        if (m_service->m_options.logRequests) {
            std::fprintf(stderr, "%s %s %d %lld ms\n", methodName(request.method()),
                         request.url().path(QUrl::FullyEncoded).toLatin1().constData(),
                         int(response.statusCode()), qlonglong(timer.elapsed()));
        }
        response.write(makeResponder(request, socket));
        return true;
    }
    void missingHandler(const QHttpServerRequest &, QTcpSocket *) override {}

private:
    AccountService *m_service;
};

AccountService::AccountService(QObject *parent)
    : QObject(parent)
    , m_http(std::make_unique<HttpFront>(this))
    , m_clock([] { return QDateTime::currentMSecsSinceEpoch(); })
{}

AccountService::~AccountService() = default;

bool AccountService::open(const Options &options, QString *error)
{
    m_options = options;
    m_news.setFile(options.newsFile);
    return m_store.open(options.databasePath, error);
}

bool AccountService::setTls(const QString &certificateFile, const QString &keyFile, QString *error)
{
#if QT_CONFIG(ssl)
    QFile certificateText(certificateFile);
    QFile keyText(keyFile);
    if (!certificateText.open(QIODevice::ReadOnly) || !keyText.open(QIODevice::ReadOnly)) {
        if (error)
            *error = QStringLiteral("cannot read %1 or %2").arg(certificateFile, keyFile);
        return false;
    }
    const QSslCertificate certificate(&certificateText, QSsl::Pem);
    QSslKey key(&keyText, QSsl::Rsa, QSsl::Pem);
    if (key.isNull()) {
        keyText.seek(0);
        key = QSslKey(&keyText, QSsl::Ec, QSsl::Pem);
    }
    if (certificate.isNull() || key.isNull()) {
        if (error)
            *error = QStringLiteral("%1 holds no PEM certificate or %2 no PEM private key")
                             .arg(certificateFile, keyFile);
        return false;
    }
    m_http->sslSetup(certificate, key);
    m_tls = true;
    return true;
#else
    Q_UNUSED(certificateFile);
    Q_UNUSED(keyFile);
    if (error)
        *error = QStringLiteral("this Qt was built without TLS support");
    return false;
#endif
}

bool AccountService::listen(const QHostAddress &address, quint16 port)
{
    m_port = m_http->listen(address, port);
    m_address = address;
    return m_port != 0;
}

quint16 AccountService::port() const
{
    return m_port;
}

QString AccountService::baseUrl() const
{
    QString host = m_address.toString();
    if (m_address == QHostAddress::LocalHost || m_address == QHostAddress::Any ||
        m_address == QHostAddress::AnyIPv4 || m_address.isNull())
        host = QStringLiteral("127.0.0.1");
    else if (m_address.protocol() == QAbstractSocket::IPv6Protocol)
        host = QStringLiteral("[%1]").arg(host);
    return QStringLiteral("%1://%2:%3")
            .arg(m_tls ? QStringLiteral("https") : QStringLiteral("http"), host)
            .arg(m_port);
}

bool AccountService::addUser(const QString &email, const QString &password,
                             const QString &firstName, QString *error)
{
    const auto fail = [error](const QString &message) {
        if (error)
            *error = message;
        return false;
    };
    const QString address = email.trimmed().toLower();
    if (!plausibleEmail(address))
        return fail(QStringLiteral("not an e-mail address: %1").arg(email));
    if (password.size() < kMinPasswordLength)
        return fail(QStringLiteral("the password needs at least %1 characters")
                            .arg(kMinPasswordLength));
    if (!m_store.isOpen())
        return fail(QStringLiteral("the database is not open"));
    QString code;
    if (!m_store.addUser(address, account::hashPassword(password), firstName.trimmed(),
                         now() / 1000, &code))
        return fail(code == QLatin1String("duplicate_email")
                            ? QStringLiteral("%1 already has an account").arg(address)
                            : QStringLiteral("the database refused the new user"));
    return true;
}

void AccountService::setClock(std::function<qint64()> unixMsClock)
{
    m_clock = std::move(unixMsClock);
}

QHttpServerResponse AccountService::respond(const QHttpServerRequest &request)
{
    const QString path = request.url().path();
    const Method method = request.method();
    const qint64 bodyLimit = qMax<qint64>(kMinBodyLimit, 2LL * m_options.maxPayloadBytes);
    if (header(request, "content-length").trimmed().toLongLong() > bodyLimit ||
        request.body().size() > bodyLimit)
        return failure(QStringLiteral("payload_too_large"), Status::PayloadTooLarge);

    struct Route
    {
        const char *path;
        Method method;
        Method otherMethod;
        QHttpServerResponse (AccountService::*handler)(const QHttpServerRequest &);
    };
    static const Route routes[] = {
            {"/TERMINAL/auth/login.php", Method::Post, Method::Post, &AccountService::login},
            {"/TERMINAL/auth/me.php", Method::Get, Method::Get, &AccountService::me},
            {"/TERMINAL/auth/refresh.php", Method::Post, Method::Post, &AccountService::refresh},
            {"/TERMINAL/auth/logout.php", Method::Post, Method::Post, &AccountService::logout},
            {"/TERMINAL/auth/google_start.php", Method::Get, Method::Post,
             &AccountService::deviceStart},
            {"/TERMINAL/auth/google_poll.php", Method::Get, Method::Get,
             &AccountService::devicePoll},
            {"/TERMINAL/sync/push.php", Method::Post, Method::Post, &AccountService::push},
            {"/TERMINAL/NEWS.json", Method::Get, Method::Get, &AccountService::news},
            {"/login_page.php", Method::Get, Method::Post, &AccountService::registration},
    };
    for (const Route &route : routes) {
        if (path != QLatin1String(route.path))
            continue;
        if (method != route.method && method != route.otherMethod)
            return failure(QStringLiteral("method_not_allowed"), Status::MethodNotAllowed);
        return (this->*route.handler)(request);
    }
    if (path == QLatin1String("/TERMINAL/sync/pull.php") ||
        path == QLatin1String("/TERMINAL/sync/status.php")) {
        if (method != Method::Get)
            return failure(QStringLiteral("method_not_allowed"), Status::MethodNotAllowed);
        return pull(request, path.endsWith(QLatin1String("pull.php")));
    }
    return failure(QStringLiteral("not_found"), Status::NotFound);
}

QJsonObject AccountService::sessionReply(const QString &token, qint64 expiresMs,
                                         const AccountStore::User &user)
{
    const QDateTime expiry = QDateTime::fromMSecsSinceEpoch(expiresMs, Qt::UTC);
    return {{QStringLiteral("ok"), true},
            {QStringLiteral("token"), token},
            {QStringLiteral("token_expiration"), expiry.toString(Qt::ISODate)},
            {QStringLiteral("email"), user.email},
            {QStringLiteral("first_name"), user.firstName}};
}

QJsonObject AccountService::issueSession(const AccountStore::User &user)
{
    const QString token = account::newToken();
    const qint64 expiresMs = now() + m_options.tokenLifetimeSeconds * 1000;
    if (!m_store.storeToken(account::tokenDigest(token), user.id, expiresMs, now()))
        return {{QStringLiteral("ok"), false}};
    return sessionReply(token, expiresMs, user);
}

std::optional<AccountService::Bearer>
AccountService::bearer(const QHttpServerRequest &request, const QString &missingCode,
                       std::optional<QHttpServerResponse> *failed)
{
    const QString token = account::bearerToken(header(request, "authorization"));
    if (token.isEmpty()) {
        failed->emplace(failure(missingCode, Status::Unauthorized));
        return std::nullopt;
    }
    const auto live = m_store.liveToken(account::tokenDigest(token), now());
    const auto user = live ? m_store.userById(live->userId) : std::nullopt;
    if (!user) {
        failed->emplace(failure(QStringLiteral("invalid_or_expired_token"), Status::Unauthorized));
        return std::nullopt;
    }
    return Bearer{token, live->expiresMs, *user};
}

QString AccountService::checkPassword(const QString &email, const QString &password,
                                      const QHostAddress &address, AccountStore::User *user)
{
    const QString emailKey = QStringLiteral("email:") + email;
    const QString addressKey = QStringLiteral("address:") + address.toString();
    const qint64 since = now() - kFailureWindowMs;
    if (m_store.failuresSince(emailKey, since) >= kFailuresPerEmail ||
        m_store.failuresSince(addressKey, since) >= kFailuresPerAddress)
        return QStringLiteral("rate_limited");
    const auto found = m_store.userByEmail(email);
    // An unknown address costs the same derivation as a wrong password.
    static const account::PasswordHash decoy = account::hashPassword(QStringLiteral("decoy"));
    const bool matches = account::verifyPassword(password, found ? found->password : decoy);
    if (!found || !matches) {
        m_store.recordFailure(emailKey, now());
        m_store.recordFailure(addressKey, now());
        return QStringLiteral("invalid_credentials");
    }
    m_store.clearFailures(emailKey);
    *user = *found;
    return {};
}

QHttpServerResponse AccountService::login(const QHttpServerRequest &request)
{
    const account::LoginBody body = account::readLoginBody(request.body());
    if (!body.error.isEmpty())
        return failure(body.error, Status::BadRequest);
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    AccountStore::User user;
    const QString refusal =
            checkPassword(body.email, body.password, request.remoteAddress(), &user);
    if (!refusal.isEmpty())
        return failure(refusal, refusal == QLatin1String("rate_limited") ? Status::TooManyRequests
                                                                         : Status::Unauthorized);
    const QJsonObject session = issueSession(user);
    if (!session.value(QLatin1String("ok")).toBool())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    return QHttpServerResponse(session);
}

QHttpServerResponse AccountService::me(const QHttpServerRequest &request)
{
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    std::optional<QHttpServerResponse> failed;
    const auto session = bearer(request, QStringLiteral("invalid_or_expired_token"), &failed);
    if (!session)
        return std::move(*failed);
    return QHttpServerResponse(sessionReply(session->token, session->expiresMs, session->user));
}

QHttpServerResponse AccountService::refresh(const QHttpServerRequest &request)
{
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    std::optional<QHttpServerResponse> failed;
    const auto session = bearer(request, QStringLiteral("invalid_or_expired_token"), &failed);
    if (!session)
        return std::move(*failed);
    const QJsonObject renewed = issueSession(session->user);
    if (!renewed.value(QLatin1String("ok")).toBool() ||
        !m_store.revokeToken(account::tokenDigest(session->token)))
        return failure(QStringLiteral("refresh_failed"), Status::InternalServerError);
    return QHttpServerResponse(renewed);
}

QHttpServerResponse AccountService::logout(const QHttpServerRequest &request)
{
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    // Logging out twice, or with a token that already expired, still ends signed out.
    const QString token = account::bearerToken(header(request, "authorization"));
    if (!token.isEmpty())
        m_store.revokeToken(account::tokenDigest(token));
    return QHttpServerResponse(QJsonObject{{QStringLiteral("ok"), true}});
}

QHttpServerResponse AccountService::deviceStart(const QHttpServerRequest &request)
{
    const bool posted = request.method() == Method::Post;
    const QHash<QString, QString> form =
            account::readFormBody(posted ? request.body() : QByteArray());
    const auto value = [&](const QString &key) {
        return posted ? form.value(key) : request.query().queryItemValue(key, QUrl::FullyDecoded);
    };
    const QString lang = account::pageLanguage(value(QStringLiteral("lang")));
    const QString device = value(QStringLiteral("device")).toLower();
    const QString title = text(lang, "Sign in to the terminal", "Entrar no terminal");
    if (!account::isDeviceCode(device))
        return page(account::messagePage(lang, title,
                                         text(lang,
                                              "This sign-in link is incomplete. Start again "
                                              "from the terminal.",
                                              "Este link de acesso está incompleto. Comece de "
                                              "novo pelo terminal.")),
                    Status::BadRequest);
    if (!m_store.isOpen())
        return page(account::messagePage(lang, title,
                                         text(lang,
                                              "The account service cannot reach its "
                                              "database. Try again later.",
                                              "O serviço de contas não consegue acessar seu banco "
                                              "de dados. Tente mais tarde.")),
                    Status::ServiceUnavailable);
    if (!posted)
        m_store.insertDeviceCode(device, now() + m_options.deviceCodeLifetimeSeconds * 1000);
    const auto code = m_store.deviceCode(device);
    if (!code || code->state != AccountStore::DeviceState::Pending || now() >= code->expiresMs)
        return page(account::messagePage(lang, title,
                                         text(lang,
                                              "This sign-in link has expired or was already "
                                              "used. Start again from the terminal.",
                                              "Este link de acesso expirou ou já foi usado. "
                                              "Comece de novo pelo terminal.")),
                    Status::Gone);
    if (!posted)
        return page(account::deviceSignInPage(lang, device, {}, {}, account::PageState::Form));

    const QString email = form.value(QStringLiteral("email")).trimmed().toLower();
    const QString password = form.value(QStringLiteral("password"));
    AccountStore::User user;
    const QString refusal =
            email.isEmpty() || password.isEmpty()
                    ? QStringLiteral("missing_credentials")
                    : checkPassword(email, password, request.remoteAddress(), &user);
    if (!refusal.isEmpty()) {
        const QString problem =
                refusal == QLatin1String("rate_limited")
                        ? text(lang, "Too many attempts. Wait a few minutes and try again.",
                               "Muitas tentativas. Aguarde alguns minutos e tente de novo.")
                : refusal == QLatin1String("missing_credentials")
                        ? text(lang, "Fill email and password.", "Preencha e-mail e senha.")
                        : text(lang, "Invalid email or password.", "E-mail ou senha inválidos.");
        return page(
                account::deviceSignInPage(lang, device, email, problem, account::PageState::Form),
                refusal == QLatin1String("rate_limited") ? Status::TooManyRequests
                                                         : Status::Unauthorized);
    }
    m_store.approveDeviceCode(device, user.id);
    return page(account::deviceSignInPage(lang, device, email, {}, account::PageState::Done));
}

QHttpServerResponse AccountService::devicePoll(const QHttpServerRequest &request)
{
    const QString device =
            request.query().queryItemValue(QStringLiteral("device"), QUrl::FullyDecoded).toLower();
    if (!account::isDeviceCode(device))
        return failure(QStringLiteral("bad_request"), Status::BadRequest);
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    // A browser can take longer to open the sign-in page than the terminal takes to poll: a
    // well-formed code first seen here starts its life here, as the start page would start it.
    if (!m_store.deviceCode(device))
        m_store.insertDeviceCode(device, now() + m_options.deviceCodeLifetimeSeconds * 1000);
    const auto code = m_store.deviceCode(device);
    // Used and expired codes read as expired: the terminal starts over on 410.
    if (!code || code->state == AccountStore::DeviceState::Used || now() >= code->expiresMs)
        return failure(QStringLiteral("expired"), Status::Gone);
    if (code->state == AccountStore::DeviceState::Pending)
        return QHttpServerResponse(
                QJsonObject{{QStringLiteral("ok"), true},
                            {QStringLiteral("status"), QStringLiteral("pending")}});
    const auto user = m_store.userById(code->userId);
    QJsonObject session = user ? issueSession(*user) : QJsonObject{};
    if (!session.value(QLatin1String("ok")).toBool())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    m_store.markDeviceCodeUsed(device);
    session.insert(QStringLiteral("status"), QStringLiteral("complete"));
    return QHttpServerResponse(session);
}

QHttpServerResponse AccountService::pull(const QHttpServerRequest &request, bool withPayloads)
{
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    std::optional<QHttpServerResponse> failed;
    const auto session = bearer(request, QStringLiteral("missing_token"), &failed);
    if (!session)
        return std::move(*failed);
    const auto stored = m_store.syncItems(session->user.id, withPayloads);
    if (!stored)
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    QJsonObject items;
    for (const AccountStore::SyncItem &item : *stored) {
        QJsonObject entry{{QStringLiteral("version"), item.version},
                          {QStringLiteral("payload_bytes"), item.payloadBytes},
                          {QStringLiteral("updated_unix"), item.updatedUnix}};
        if (withPayloads)
            entry.insert(QStringLiteral("payload"), account::jsonFromText(item.payloadJson));
        items.insert(item.name, entry);
    }
    return QHttpServerResponse(
            QJsonObject{{QStringLiteral("ok"), true}, {QStringLiteral("items"), items}});
}

QHttpServerResponse AccountService::push(const QHttpServerRequest &request)
{
    if (!m_store.isOpen())
        return failure(QStringLiteral("database_unavailable"), Status::ServiceUnavailable);
    std::optional<QHttpServerResponse> failed;
    const auto session = bearer(request, QStringLiteral("missing_token"), &failed);
    if (!session)
        return std::move(*failed);
    const account::PushBody body = account::readPushBody(request.body(), m_options.maxPayloadBytes);
    if (!body.error.isEmpty())
        return failure(body.error, body.error == QLatin1String("payload_too_large")
                                           ? Status::PayloadTooLarge
                                           : Status::BadRequest);
    QHash<QString, qint64> versions;
    switch (m_store.push(session->user.id, body.items, now() / 1000, &versions)) {
    case AccountStore::PushOutcome::Conflict:
        return failure(QStringLiteral("version_conflict"), Status::Conflict);
    case AccountStore::PushOutcome::Failed:
        return failure(QStringLiteral("sync_failed"), Status::InternalServerError);
    case AccountStore::PushOutcome::Stored:
        break;
    }
    // The new versions twice: flat under "versions", and under "items" shaped like a pull reply's
    // entries, so a client may read either.
    QJsonObject flat;
    QJsonObject items;
    for (auto it = versions.cbegin(); it != versions.cend(); ++it) {
        flat.insert(it.key(), it.value());
        items.insert(it.key(), QJsonObject{{QStringLiteral("version"), it.value()}});
    }
    return QHttpServerResponse(QJsonObject{{QStringLiteral("ok"), true},
                                           {QStringLiteral("versions"), flat},
                                           {QStringLiteral("items"), items}});
}

QHttpServerResponse AccountService::registration(const QHttpServerRequest &request)
{
    const bool posted = request.method() == Method::Post;
    const QHash<QString, QString> form =
            account::readFormBody(posted ? request.body() : QByteArray());
    const QString lang =
            account::pageLanguage(posted ? form.value(QStringLiteral("lang"))
                                         : request.query().queryItemValue(QStringLiteral("lang")));
    if (!m_store.isOpen())
        return page(account::messagePage(
                            lang,
                            text(lang, "Create your Querlin account", "Crie sua conta Querlin"),
                            text(lang,
                                 "The account service cannot reach its database. Try again "
                                 "later.",
                                 "O serviço de contas não consegue acessar seu banco de dados. "
                                 "Tente mais tarde.")),
                    Status::ServiceUnavailable);
    if (!posted)
        return page(account::registrationPage(lang, {}, {}, {}, account::PageState::Form));

    const QString email = form.value(QStringLiteral("email")).trimmed().toLower();
    const QString firstName = form.value(QStringLiteral("first_name")).trimmed().left(100);
    const QString password = form.value(QStringLiteral("password"));
    QString problem;
    Status status = Status::BadRequest;
    if (!plausibleEmail(email))
        problem = text(lang, "Enter a valid e-mail address.", "Informe um e-mail válido.");
    else if (password.size() < kMinPasswordLength)
        problem = text(lang, "The password needs at least 8 characters.",
                       "A senha precisa de pelo menos 8 caracteres.");
    else if (password != form.value(QStringLiteral("password2")))
        problem = text(lang, "The two passwords differ.", "As duas senhas são diferentes.");
    else if (QString code; !m_store.addUser(email, account::hashPassword(password), firstName,
                                            now() / 1000, &code)) {
        const bool duplicate = code == QLatin1String("duplicate_email");
        problem = duplicate ? text(lang, "An account with this e-mail already exists.",
                                   "Já existe uma conta com este e-mail.")
                            : text(lang, "The account could not be created. Try again later.",
                                   "Não foi possível criar a conta. Tente mais tarde.");
        status = duplicate ? Status::Conflict : Status::ServiceUnavailable;
    }
    if (!problem.isEmpty())
        return page(account::registrationPage(lang, email, firstName, problem,
                                              account::PageState::Form),
                    status);
    return page(account::registrationPage(lang, email, firstName, {}, account::PageState::Done));
}

QHttpServerResponse AccountService::news(const QHttpServerRequest &request)
{
    return QHttpServerResponse(m_news.reply(account::readNewsQuery(request.query())));
}

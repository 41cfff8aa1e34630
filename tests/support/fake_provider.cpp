#include "fake_provider.h"

#include "app/endpoints.h"

#include <QFile>
#include <QTest>

#include <algorithm>

namespace {

bool sameName(const QByteArray &a, const QByteArray &b)
{
    return a.compare(b, Qt::CaseInsensitive) == 0;
}

HttpResponse toResponse(const FakeReply &reply)
{
    HttpResponse response;
    response.status = reply.status;
    response.reason = reply.reason;
    response.contentType = "application/json";
    response.headers = reply.headers;
    response.body = reply.body;
    response.delayMs = reply.delayMs;
    switch (reply.mode) {
    case FakeReply::Mode::Answer:
        response.mode = HttpResponse::Mode::Answer;
        break;
    case FakeReply::Mode::NoAnswer:
        response.mode = HttpResponse::Mode::Silent;
        break;
    case FakeReply::Mode::CloseMidBody:
        response.mode = HttpResponse::Mode::CloseMidBody;
        break;
    case FakeReply::Mode::CloseWithoutReply:
        response.mode = HttpResponse::Mode::CloseWithoutReply;
        break;
    }
    return response;
}

} // namespace

FakeReply FakeReply::json(const QByteArray &body, int status)
{
    FakeReply reply;
    reply.status = status;
    reply.body = body;
    return reply;
}

FakeReply FakeReply::text(const QByteArray &body, int status)
{
    FakeReply reply = json(body, status);
    reply.headers = {{"Content-Type", "text/plain; charset=utf-8"}};
    return reply;
}

QByteArray FakeReply::reasonPhrase() const
{
    return toResponse(*this).reasonPhrase();
}

QByteArray RecordedRequest::header(const QByteArray &name) const
{
    for (const auto &[headerName, value] : headers) {
        if (sameName(headerName, name))
            return value;
    }
    return {};
}

int RecordedRequest::headerCount(const QByteArray &name) const
{
    return int(std::count_if(headers.cbegin(), headers.cend(),
                             [&name](const auto &header) { return sameName(header.first, name); }));
}

QList<QPair<QString, QString>> RecordedRequest::queryItems() const
{
    QList<QPair<QString, QString>> items;
    for (const QByteArray &item : rawQuery.split('&')) {
        if (item.isEmpty())
            continue;
        const qsizetype equals = item.indexOf('=');
        const QByteArray name = equals < 0 ? item : item.left(equals);
        const QByteArray value = equals < 0 ? QByteArray() : item.mid(equals + 1);
        items.append({QString::fromUtf8(QByteArray::fromPercentEncoding(name)),
                      QString::fromUtf8(QByteArray::fromPercentEncoding(value))});
    }
    return items;
}

QString RecordedRequest::queryItem(const QString &name) const
{
    for (const auto &[itemName, value] : queryItems()) {
        if (itemName == name)
            return value;
    }
    return {};
}

FakeProvider::FakeProvider(QObject *parent)
    : QObject(parent)
    , m_server([this](const HttpRequest &request) { return respond(request); })
{
    connect(&m_server, &HttpServer::received, this, &FakeProvider::record);
}

FakeProvider::~FakeProvider() = default;

bool FakeProvider::listen()
{
    return m_server.listen(0);
}

quint16 FakeProvider::port() const
{
    return m_server.port();
}

QString FakeProvider::baseUrl() const
{
    return QStringLiteral("http://127.0.0.1:%1").arg(port());
}

void FakeProvider::serveEveryEndpoint() const
{
    for (const EndpointDefinition &definition : endpointDefinitions()) {
        if (!definition.isStream)
            qputenv(definition.environmentVariable, baseUrl().toUtf8());
    }
}

void FakeProvider::setReply(const QString &path, const FakeReply &reply)
{
    m_replies.insert(path.toUtf8(), reply);
}

void FakeProvider::queueReply(const QString &path, const FakeReply &reply)
{
    m_queuedReplies[path.toUtf8()].append(reply);
}

RecordedRequest FakeProvider::lastRequest() const
{
    return m_requests.isEmpty() ? RecordedRequest() : m_requests.last();
}

bool FakeProvider::waitForRequests(int count, int timeoutMs)
{
    return QTest::qWaitFor([this, count] { return m_requests.size() >= count; }, timeoutMs);
}

// Every request is recorded as it arrives, before it is answered (or refused, as a chunked one is).
void FakeProvider::record(const HttpRequest &request)
{
    m_requests.append(RecordedRequest{.method = request.method,
                                      .path = request.path,
                                      .rawQuery = request.rawQuery,
                                      .headers = request.headers,
                                      .body = request.body,
                                      .connection = request.connection});
    emit requestReceived(int(m_requests.size() - 1));
}

HttpResponse FakeProvider::respond(const HttpRequest &request)
{
    return toResponse(takeReply(request.path));
}

FakeReply FakeProvider::takeReply(const QByteArray &path)
{
    const auto queued = m_queuedReplies.find(path);
    if (queued != m_queuedReplies.end() && !queued->isEmpty())
        return queued->takeFirst();
    const auto scripted = m_replies.constFind(path);
    if (scripted != m_replies.cend())
        return *scripted;
    return FakeReply::json(R"({"error":"no scripted reply"})", 404);
}

QByteArray providerData(const QString &fileName)
{
    QFile file(QStringLiteral(QRL_PROVIDER_DATA "/") + fileName);
    if (!file.open(QIODevice::ReadOnly))
        qFatal("missing provider data %s", qPrintable(fileName));
    return file.readAll();
}

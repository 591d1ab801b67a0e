// SPDX-License-Identifier: MIT
#pragma once

#include <QByteArray>
#include <QTcpServer>
#include <QTcpSocket>

#include <functional>
#include <map>
#include <vector>

namespace desktop {

struct HttpRequest
{
    QByteArray path; // without the query
    QByteArray query;
    std::map<QByteArray, QByteArray> headers; // names in lower case
    QByteArray header(const QByteArray& name) const
    {
        const auto found = headers.find(name);
        return found == headers.end() ? QByteArray() : found->second;
    }
};

struct HttpReply
{
    // Endless: chunk after chunk until the client hangs up. Silent: no answer at all.
    enum class Kind {
        Whole,
        Endless,
        Silent,
    };
    int status = 200;
    QByteArray type = "text/html";
    QByteArray body = {};
    QByteArray headers = {}; // more header lines, each ending in CRLF
    Kind kind = Kind::Whole;
};

// A tiny HTTP/1.0 server on 127.0.0.1: one request a connection, answered by `answer`, and every
// request kept in `seen`.
class HttpServer
{
public:
    explicit HttpServer(std::function<HttpReply(const HttpRequest&)> answer)
        : m_answer(std::move(answer))
    {
        m_server.listen(QHostAddress::LocalHost);
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this] {
            while (QTcpSocket* socket = m_server.nextPendingConnection()) {
                QObject::connect(
                    socket, &QTcpSocket::readyRead, socket, [this, socket] { read(socket); });
                QObject::connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            }
        });
    }

    quint16 port() const { return m_server.serverPort(); }
    QByteArray address(const QByteArray& path, const QByteArray& host = "127.0.0.1") const
    {
        return "http://" + host + ':' + QByteArray::number(port()) + path;
    }
    std::vector<HttpRequest> seenAt(const QByteArray& path) const
    {
        std::vector<HttpRequest> found;
        for (const auto& request : seen) {
            if (request.path == path) {
                found.push_back(request);
            }
        }
        return found;
    }

    std::vector<HttpRequest> seen;

private:
    void read(QTcpSocket* socket)
    {
        QByteArray& buffer = m_buffers[socket];
        buffer += socket->readAll();
        if (!buffer.contains("\r\n\r\n")) {
            return;
        }
        const QList<QByteArray> lines = buffer.left(buffer.indexOf("\r\n\r\n")).split('\n');
        m_buffers.erase(socket);
        HttpRequest request;
        const QByteArray target = lines.value(0).split(' ').value(1);
        const qsizetype question = target.indexOf('?');
        request.path = question < 0 ? target : target.left(question);
        request.query = question < 0 ? QByteArray() : target.mid(question + 1);
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            if (colon > 0) {
                request.headers[lines[i].left(colon).trimmed().toLower()] =
                    lines[i].mid(colon + 1).trimmed();
            }
        }
        seen.push_back(request);
        const HttpReply reply = m_answer(request);
        if (reply.kind == HttpReply::Kind::Silent) {
            return;
        }
        QByteArray head = "HTTP/1.0 " + QByteArray::number(reply.status)
                          + " X\r\nContent-Type: " + reply.type + "\r\n" + reply.headers;
        if (reply.kind == HttpReply::Kind::Whole) {
            socket->write(head + "Content-Length: " + QByteArray::number(reply.body.size())
                          + "\r\nConnection: close\r\n\r\n" + reply.body);
            socket->disconnectFromHost();
            return;
        }
        const QByteArray chunk(64 * 1024, 'x');
        QObject::connect(socket, &QTcpSocket::bytesWritten, socket, [socket, chunk] {
            if (socket->bytesToWrite() < chunk.size()) {
                socket->write(chunk);
            }
        });
        socket->write(head + "\r\n" + chunk);
    }

    std::function<HttpReply(const HttpRequest&)> m_answer;
    QTcpServer m_server;
    std::map<QTcpSocket*, QByteArray> m_buffers;
};

} // namespace desktop

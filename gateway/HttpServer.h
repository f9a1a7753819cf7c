#pragma once

#include <memory>
#include <string>
#include <thread>

namespace httplib
{
class Server;
}

namespace Quorvex
{

class CallControl;
class Metrics;

/// The operators' HTTP interface: /healthz, /metrics and /api. Its threads touch nothing but the call control
/// and the metrics, which must outlive it. Errors are JSON objects with one sentence ("error").
class HttpServer
{
public:
    HttpServer(CallControl& in_control, Metrics& in_metrics);
    HttpServer(const HttpServer&) = delete;
    HttpServer& operator=(const HttpServer&) = delete;
    ~HttpServer();

    /// Listens on "127.0.0.1:8080" (port 0: a free one) and serves. False, with one sentence in
    /// `out_strError`, when the address cannot be listened on.
    bool start(const std::string& in_strListen, std::string& out_strError);

    /// Stops listening, waits for the requests in hand. May be called twice.
    void stop();

    /// The port that is listened on; 0 when stopped.
    int getPort() const { return m_iPort; }

    /// Splits "host:port" ("[::1]:8080" too); false when it is none or the port is above 65535.
    static bool parseListen(const std::string& in_strListen, std::string& out_strHost, int& out_iPort);

private:
    void addRoutes();
    void addCallRoutes();

    CallControl& m_control;
    Metrics& m_metrics;
    std::unique_ptr<httplib::Server> m_pServer;
    std::thread m_thread;
    int m_iPort = 0;
};

}  // namespace Quorvex

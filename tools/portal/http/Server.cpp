#include "portal/http/ServerImpl.h"

#include <future>
#include <stdexcept>

#include <boost/asio/post.hpp>

namespace VelmoraPortal {
namespace {

constexpr std::size_t maxConnections = 2000;

} // namespace

Server::Impl::Impl(ServerHandler &owner, const Certificates &certificates)
    : handler(owner)
{
    tls.set_options(net::ssl::context::default_workarounds | net::ssl::context::no_tlsv1 |
                    net::ssl::context::no_tlsv1_1);
    tls.use_certificate_chain(net::buffer(certificates.certPem));
    tls.use_private_key(net::buffer(certificates.keyPem), net::ssl::context::pem);
}

std::shared_ptr<OpenSocket> Server::Impl::open(std::uint64_t socket)
{
    const auto found = sockets.find(socket);
    return found == sockets.end() ? nullptr : found->second.lock();
}

void Server::Impl::accept()
{
    acceptor.async_accept([this](error_code error, tcp::socket socket) {
        if (!acceptor.is_open())
            return;
        if (error) { // most likely out of descriptors: wait until some are closed
            pause.expires_after(std::chrono::milliseconds(50));
            pause.async_wait([this](error_code cancelled) {
                if (!cancelled)
                    accept();
            });
            return;
        }
        if (*connections >= maxConnections) {
            reset(socket);
        } else {
            error_code ignored;
            socket.set_option(tcp::no_delay(true), ignored);
            serve(std::move(socket), *this);
        }
        accept();
    });
}

void Server::Impl::tickLater()
{
    ticker.expires_after(tick);
    ticker.async_wait([this](error_code cancelled) {
        if (cancelled)
            return;
        handler.tick();
        tickLater();
    });
}

Server::Server(std::uint16_t port, const Certificates &certificates, ServerHandler &handler)
try : m_impl(std::make_unique<Impl>(handler, certificates)) {
    const tcp::endpoint endpoint(net::ip::address_v4::loopback(), port);
    m_impl->acceptor.open(endpoint.protocol());
    m_impl->acceptor.set_option(tcp::acceptor::reuse_address(true));
    m_impl->acceptor.bind(endpoint);
    m_impl->acceptor.listen();
    m_impl->port = m_impl->acceptor.local_endpoint().port();
} catch (const boost::system::system_error &error) {
    throw std::runtime_error("Cannot listen on 127.0.0.1:" + std::to_string(port) + ": " + error.code().message());
}

Server::~Server() { stop(); }

std::uint16_t Server::port() const { return m_impl->port; }

void Server::start(std::chrono::milliseconds tick)
{
    m_impl->tick = tick;
    m_impl->accept();
    m_impl->tickLater();
    m_impl->thread = std::thread([this] { m_impl->io.run(); });
}

void Server::stop()
{
    if (!m_impl->thread.joinable())
        return;
    m_impl->io.stop();
    m_impl->thread.join();
}

void Server::call(const std::function<void()> &work)
{
    std::promise<void> done;
    net::post(m_impl->io, [&] {
        try {
            work();
            done.set_value();
        } catch (...) {
            done.set_exception(std::current_exception());
        }
    });
    done.get_future().get();
}

void Server::send(std::uint64_t socket, std::string text)
{
    if (const auto open = m_impl->open(socket))
        open->send(std::move(text));
}

void Server::close(std::uint64_t socket, int code, std::string reason)
{
    if (const auto open = m_impl->open(socket))
        open->close(code, std::move(reason));
}

void Server::drop(std::uint64_t socket)
{
    if (const auto open = m_impl->open(socket))
        open->drop();
}

void Server::sendRaw(std::uint64_t socket, std::string bytes)
{
    if (const auto open = m_impl->open(socket))
        open->sendRaw(std::move(bytes));
}

} // namespace VelmoraPortal

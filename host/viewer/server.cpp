// libwebsockets does the protocols; here is who gets what, and the pace: a connection is written to only when
// its socket takes more, a piece at a time.
#include "server.h"

#include <fmt/format.h>
#include <libwebsockets.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <new>
#include <thread>
#include <unordered_map>
#include <utility>

#include "access.h"
#include "assets.h"
#include "scansteps/host.h"

namespace scansteps::viewer {

namespace {

constexpr std::size_t kPiece = 64 * 1024;
constexpr unsigned kConnections = 1024;  // more wait until others end
constexpr int kMisdirected = 421;

const char* const kPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; connect-src "
    "'self'; "
    "base-uri 'none'; form-action 'none'; frame-ancestors 'none'";

// What a connection is about; libwebsockets zeroes the memory and calls no constructor.
struct Connection
{
    const Asset* asset;
    std::size_t sent;
    bool isNew;  // still has to be given its cookie
};

}  // namespace

struct Server::State
{
    State(Session& sharedSession, const std::string& bind, std::uint16_t port);
    ~State();

    struct Viewer
    {
        std::shared_ptr<Client> client;
        std::string incoming;
        Answer outgoing;
        std::size_t sent = 0;
    };

    static int callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t length);
    int handle(lws* wsi, lws_callback_reasons reason, Connection* connection, std::string_view in);
    int judge(lws* wsi);
    int answerHttp(lws* wsi, Connection* connection, std::string_view path);
    int sendHeaders(lws* wsi, const Connection& connection);
    int continueBody(lws* wsi, Connection* connection);
    int open(lws* wsi);
    int receive(lws* wsi, std::string_view in);
    int continueAnswer(lws* wsi);
    void wakeAll();
    void serve();

    Session& session;
    Access access;
    lws_context* context = nullptr;
    std::unordered_map<lws*, Viewer> viewers;
    std::atomic<bool> ends = false;
    std::thread thread;
};

namespace {

std::string header(lws* wsi, lws_token_indexes which)
{
    std::string text(static_cast<std::size_t>(lws_hdr_total_length(wsi, which)) + 1, '\0');
    const int length = lws_hdr_copy(wsi, text.data(), int(text.size()), which);
    text.resize(length > 0 ? std::size_t(length) : 0);
    return text;
}

// The parameter "token" of the request.
std::string tokenOf(lws* wsi)
{
    std::array<char, 256> value{};
    const char* found = lws_get_urlarg_by_name(wsi, "token=", value.data(), int(value.size()) - 1);
    return found != nullptr ? found : "";
}

int refuse(lws* wsi, int status, const char* text)
{
    return lws_return_http_status(wsi, unsigned(status), text) != 0 ? 1
           : lws_http_transaction_completed(wsi) != 0               ? 1
                                                                    : 0;
}

}  // namespace

// The status of a refusal, or 0.
int Server::State::judge(lws* wsi)
{
    if (!access.isOwnHost(header(wsi, WSI_TOKEN_HOST))) return kMisdirected;
    if (!access.isToken(tokenOf(wsi)) && !access.hasToken(header(wsi, WSI_TOKEN_HTTP_COOKIE))) return 401;
    if (!access.isOwnOrigin(header(wsi, WSI_TOKEN_ORIGIN))) return 403;
    return 0;
}

int Server::State::sendHeaders(lws* wsi, const Connection& connection)
{
    std::array<unsigned char, LWS_PRE + 2048> buffer{};
    unsigned char *at = buffer.data() + LWS_PRE, *const begin = at,
                  *const end = buffer.data() + buffer.size() - 1;
    const auto add = [&](const char* name, const std::string& value) {
        return lws_add_http_header_by_name(wsi, reinterpret_cast<const unsigned char*>(name),
                                           reinterpret_cast<const unsigned char*>(value.data()),
                                           int(value.size()), &at, end) == 0;
    };
    bool fits = lws_add_http_common_headers(wsi, 200, connection.asset->type, connection.asset->size(), &at,
                                            end) == 0;
    fits = fits && add("content-security-policy:", kPolicy) && add("x-content-type-options:", "nosniff") &&
           add("referrer-policy:", "no-referrer") && add("cross-origin-opener-policy:", "same-origin") &&
           add("cross-origin-resource-policy:", "same-origin") && add("cache-control:", "no-store");
    if (fits && connection.isNew)
        fits = add("set-cookie:", fmt::format("{}={}; HttpOnly; SameSite=Strict; Path=/", access.cookieName(),
                                              access.token()));
    return fits && lws_finalize_write_http_header(wsi, begin, &at, end) == 0 ? 0 : 1;
}

int Server::State::answerHttp(lws* wsi, Connection* connection, std::string_view path)
{
    if (const int status = judge(wsi); status != 0)
        return refuse(wsi, status,
                      status == 401            ? "Open the address that scansteps view has printed."
                      : status == kMisdirected ? "This server has no such name."
                                               : "Not for pages of other servers.");
    if (lws_hdr_total_length(wsi, WSI_TOKEN_GET_URI) == 0) return refuse(wsi, 405, "Only GET is served.");
    if (path == "/") path = "/index.html";
    const auto all = assets();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const Asset& asset) { return path == asset.path; });
    if (found == all.end()) return refuse(wsi, 404, "There is no such file.");
    *connection = {&*found, 0, access.isToken(tokenOf(wsi))};
    if (sendHeaders(wsi, *connection) != 0) return 1;
    lws_callback_on_writable(wsi);
    return 0;
}

int Server::State::continueBody(lws* wsi, Connection* connection)
{
    if (connection == nullptr || connection->asset == nullptr) return 0;
    const std::size_t left = connection->asset->size() - connection->sent;
    const std::size_t count = std::min(left, kPiece);
    std::vector<unsigned char> piece(LWS_PRE + count);
    std::memcpy(piece.data() + LWS_PRE, connection->asset->begin + connection->sent, count);
    const bool isLast = count == left;
    if (lws_write(wsi, piece.data() + LWS_PRE, count, isLast ? LWS_WRITE_HTTP_FINAL : LWS_WRITE_HTTP) <
        int(count))
        return 1;
    connection->sent += count;
    if (!isLast) {
        lws_callback_on_writable(wsi);
        return 0;
    }
    connection->asset = nullptr;
    return lws_http_transaction_completed(wsi) != 0 ? -1 : 0;
}

int Server::State::open(lws* wsi)
{
    auto client = session.connect();
    if (!client) {
        unsigned char why[] = "too many viewers";
        lws_close_reason(wsi, static_cast<lws_close_status>(1013), why, sizeof why - 1);
        return -1;
    }
    viewers[wsi].client = std::move(client);
    lws_callback_on_writable(wsi);
    return 0;
}

int Server::State::receive(lws* wsi, std::string_view in)
{
    const auto found = viewers.find(wsi);
    if (found == viewers.end()) return -1;
    Viewer& viewer = found->second;
    if (viewer.incoming.size() + in.size() > kMaxMessage) return -1;
    viewer.incoming += in;
    if (lws_is_final_fragment(wsi) == 0 || lws_remaining_packet_payload(wsi) != 0) return 0;
    const std::string message = std::exchange(viewer.incoming, {});
    if (!session.receive(viewer.client, message)) return -1;
    lws_callback_on_writable(wsi);
    return 0;
}

int Server::State::continueAnswer(lws* wsi)
{
    const auto found = viewers.find(wsi);
    if (found == viewers.end()) return 0;
    Viewer& viewer = found->second;
    if (!viewer.outgoing) {
        viewer.outgoing = session.takeAnswer(*viewer.client);
        viewer.sent = 0;
        if (!viewer.outgoing) return 0;
    }
    const Bytes& bytes = *viewer.outgoing;
    const std::size_t count = std::min(bytes.size() - viewer.sent, kPiece);
    std::vector<unsigned char> piece(LWS_PRE + count);
    std::memcpy(piece.data() + LWS_PRE, bytes.data() + viewer.sent, count);
    const bool isFirst = viewer.sent == 0, isLast = viewer.sent + count == bytes.size();
    const int flags = lws_write_ws_flags(LWS_WRITE_BINARY, isFirst, isLast);
    if (lws_write(wsi, piece.data() + LWS_PRE, count, static_cast<lws_write_protocol>(flags)) < int(count))
        return -1;
    viewer.sent += count;
    if (isLast) viewer.outgoing.reset();
    lws_callback_on_writable(wsi);
    return 0;
}

void Server::State::wakeAll()
{
    for (const auto& [wsi, viewer] : viewers) lws_callback_on_writable(wsi);
}

int Server::State::handle(lws* wsi, lws_callback_reasons reason, Connection* connection, std::string_view in)
{
    switch (reason) {
        case LWS_CALLBACK_HTTP:
            return answerHttp(wsi, connection, in);
        case LWS_CALLBACK_HTTP_WRITEABLE:
            return continueBody(wsi, connection);
        case LWS_CALLBACK_FILTER_PROTOCOL_CONNECTION: {
            const int status = judge(wsi);
            if (status == 0) return 0;
            lws_return_http_status(wsi, unsigned(status), nullptr);
            return 1;
        }
        case LWS_CALLBACK_ESTABLISHED:
            return open(wsi);
        case LWS_CALLBACK_RECEIVE:
            return receive(wsi, in);
        case LWS_CALLBACK_SERVER_WRITEABLE:
            return continueAnswer(wsi);
        case LWS_CALLBACK_CLOSED:
            if (const auto found = viewers.find(wsi); found != viewers.end()) {
                session.disconnect(found->second.client);
                viewers.erase(found);
            }
            return 0;
        case LWS_CALLBACK_EVENT_WAIT_CANCELLED:
            wakeAll();
            return 0;
        default:
            return 0;
    }
}

// Exceptions must not pass through the library, which is in C.
int Server::State::callback(lws* wsi, lws_callback_reasons reason, void* user, void* in, std::size_t length)
try {
    lws_context* context = wsi != nullptr ? lws_get_context(wsi) : nullptr;
    auto* state = context != nullptr ? static_cast<State*>(lws_context_user(context)) : nullptr;
    if (state == nullptr) return 0;
    const std::string_view bytes(static_cast<const char*>(in), in != nullptr ? length : 0);
    return state->handle(wsi, reason, static_cast<Connection*>(user), bytes);
} catch (const std::exception&) {
    return -1;
}

Server::State::State(Session& sharedSession, const std::string& bind, std::uint16_t port)
    : session(sharedSession), access(bind)
{
    static const std::array<lws_protocols, 2> kProtocols{
        {{"scansteps-view", callback, sizeof(Connection), kMaxMessage, 0, nullptr, 0},
         {nullptr, nullptr, 0, 0, 0, nullptr, 0}}};
    static const lws_retry_bo kLiveliness = {nullptr, 0,  0,
                                             20,      40, 0};  // seconds to a ping, and to giving up
    lws_set_log_level(0, nullptr);
    lws_context_creation_info info{};
    info.port = port;
    info.iface = bind.c_str();
    info.protocols = kProtocols.data();
    info.user = this;
    info.gid = gid_t(-1);
    info.uid = uid_t(-1);
    info.fd_limit_per_thread = kConnections;
    info.keepalive_timeout = 10;
    info.timeout_secs = 10;
    info.retry_and_idle_policy = &kLiveliness;
    info.options = LWS_SERVER_OPTION_FAIL_UPON_UNABLE_TO_BIND | LWS_SERVER_OPTION_EXPLICIT_VHOSTS;
    context = lws_create_context(&info);
    if (context == nullptr) throw host::FileError("the web server could not be started");
    lws_vhost* const vhost = lws_create_vhost(context, &info);
    if (vhost == nullptr) {
        lws_context_destroy(context);
        throw host::FileError(
            fmt::format("cannot listen on {}:{}: the address is in use or not of this machine", bind, port));
    }
    access.setPort(lws_get_vhost_listen_port(vhost));
    session.setWake([this] { lws_cancel_service(context); });
    thread = std::thread([this] { serve(); });
}

void Server::State::serve()
{
    while (!ends && lws_service(context, 0) >= 0) {
    }
}

Server::State::~State()
{
    session.setWake({});
    ends = true;
    lws_cancel_service(context);
    thread.join();
    lws_context_destroy(context);
}

Server::Server(Session& session, const std::string& bind, std::uint16_t port)
    : state_(std::make_unique<State>(session, bind, port))
{
}

Server::~Server() = default;

std::string Server::address() const
{
    return state_->access.address();
}

}  // namespace scansteps::viewer

#include "tools/broker/BrokerConnection.h"

#include <amqp.h>
#include <amqp_ssl_socket.h>
#include <amqp_tcp_socket.h>
#include <sys/time.h>

#include <array>
#include <charconv>

#include "tools/broker/BrokerTable.h"

namespace {

constexpr amqp_channel_t kChannel = 1;
constexpr timeval kConnectPatience{10, 0};
constexpr timeval kReplyPatience{30, 0};
constexpr const char* kSystemAuthorities = "/etc/ssl/certs/ca-certificates.crt";

/// What a broker says when it closes a channel or a connection.
std::string reasonIn(const amqp_method_t& method) {
    if (method.id == AMQP_CHANNEL_CLOSE_METHOD)
        return copyOf(static_cast<amqp_channel_close_t*>(method.decoded)->reply_text);
    if (method.id == AMQP_CONNECTION_CLOSE_METHOD)
        return copyOf(static_cast<amqp_connection_close_t*>(method.decoded)->reply_text);
    return std::string("an answer that makes no sense, ") + amqp_method_name(method.id);
}

std::string reasonOf(const amqp_rpc_reply_t& reply) {
    if (reply.reply_type == AMQP_RESPONSE_SERVER_EXCEPTION) return reasonIn(reply.reply);
    if (reply.reply_type == AMQP_RESPONSE_LIBRARY_EXCEPTION) return amqp_error_string2(reply.library_error);
    return "the broker says nothing";
}

timeval toTimeval(std::chrono::milliseconds time) {
    return {time.count() / 1000, static_cast<suseconds_t>(time.count() % 1000 * 1000)};
}

BrokerEvent confirmation(BrokerEvent::Kind kind, uint64_t tag, bool multiple) {
    return {.kind = kind, .tag = tag, .multiple = multiple};
}

}  // namespace

void BrokerConnection::Close::operator()(amqp_connection_state_t_* state) const {
    amqp_destroy_connection(state);
}

BrokerConnection::BrokerConnection(const BrokerOptions& options, const std::string& name)
    : m_state(amqp_new_connection()), m_place(options.host + ":" + std::to_string(options.port)) {
    if (!m_state) throw BrokerError("no memory for a connection");
    openSocket(options);
    logIn(options, name);
    openChannel();
    amqp_confirm_select(m_state.get(), kChannel);
    checkReply("confirmations");
}

// A server that does not answer must not keep us from ending.
BrokerConnection::~BrokerConnection() {
    constexpr timeval kGoodByePatience{2, 0};
    if (!m_isOpen) return;
    (void)amqp_set_rpc_timeout(m_state.get(), &kGoodByePatience);
    (void)amqp_connection_close(m_state.get(), AMQP_REPLY_SUCCESS);
}

void BrokerConnection::check(int status, const std::string& what) const {
    if (status != AMQP_STATUS_OK)
        throw BrokerError(m_place + ": " + what + ": " + amqp_error_string2(status));
}

void BrokerConnection::checkReply(const std::string& what) {
    const amqp_rpc_reply_t reply = amqp_get_rpc_reply(m_state.get());
    if (reply.reply_type == AMQP_RESPONSE_NORMAL) return;
    m_isOpen = false;
    throw BrokerError(m_place + ": " + what + ": " + reasonOf(reply));
}

void BrokerConnection::openSocket(const BrokerOptions& options) {
    (void)amqp_set_handshake_timeout(m_state.get(), &kConnectPatience);
    (void)amqp_set_rpc_timeout(m_state.get(), &kReplyPatience);
    amqp_socket_t* socket =
        options.isEncrypted ? amqp_ssl_socket_new(m_state.get()) : amqp_tcp_socket_new(m_state.get());
    if (!socket) throw BrokerError("no memory for a connection");
    if (options.isEncrypted) {
        const std::string authorities =
            options.authorities.empty() ? kSystemAuthorities : options.authorities;
        amqp_ssl_socket_set_verify_peer(socket, 1);
        amqp_ssl_socket_set_verify_hostname(socket, 1);
        check(amqp_ssl_socket_set_ssl_versions(socket, AMQP_TLSv1_2, AMQP_TLSvLATEST), "TLS");
        if (amqp_ssl_socket_set_cacert(socket, authorities.c_str()) != AMQP_STATUS_OK)
            throw BrokerOptionsError(authorities + " cannot be read as certificates of authorities");
        if (!options.certificate.empty() && amqp_ssl_socket_set_key(socket, options.certificate.c_str(),
                                                                    options.key.c_str()) != AMQP_STATUS_OK)
            throw BrokerOptionsError(options.certificate + " and " + options.key +
                                     " cannot be read as a certificate and its key");
    }
    check(amqp_socket_open_noblock(socket, options.host.c_str(), options.port, &kConnectPatience),
          "no connection");
}

void BrokerConnection::logIn(const BrokerOptions& options, const std::string& name) {
    constexpr int kMostChannels = 1, kFrameBytes = 131072;
    // Else nobody would tell that a queue that is consumed was deleted.
    amqp_table_entry_t capability{amqp_cstring_bytes("consumer_cancel_notify"), {}};
    capability.value.kind = AMQP_FIELD_KIND_BOOLEAN;
    capability.value.value.boolean = 1;
    std::array<amqp_table_entry_t, 2> properties{
        {{amqp_cstring_bytes("connection_name"), {}}, {amqp_cstring_bytes("capabilities"), {}}}};
    properties[0].value.kind = AMQP_FIELD_KIND_UTF8;
    properties[0].value.value.bytes = borrowed(name);
    properties[1].value.kind = AMQP_FIELD_KIND_TABLE;
    properties[1].value.value.table = {1, &capability};
    const amqp_table_t words{properties.size(), properties.data()};
    const std::string password = readPassword(options);
    const amqp_rpc_reply_t reply = amqp_login_with_properties(
        m_state.get(), options.virtualHost.c_str(), kMostChannels, kFrameBytes, options.heartbeatSeconds,
        &words, AMQP_SASL_METHOD_PLAIN, options.user.c_str(), password.c_str());
    if (reply.reply_type != AMQP_RESPONSE_NORMAL)
        throw BrokerError(m_place + ": no login as " + options.user + " to " + options.virtualHost + ": " +
                          reasonOf(reply));
    m_isOpen = true;
}

void BrokerConnection::openChannel() {
    amqp_channel_open(m_state.get(), kChannel);
    checkReply("a channel");
}

void BrokerConnection::declareQueue(const std::string& name, const BrokerHeaders& arguments) {
    BrokerTable table(arguments);
    amqp_queue_declare(m_state.get(), kChannel, borrowed(name), false, true, false, false, table.table());
    checkReply("queue " + name);
}

void BrokerConnection::declareTopic(const std::string& name) {
    amqp_exchange_declare(m_state.get(), kChannel, borrowed(name), amqp_cstring_bytes("topic"), false, true,
                          false, false, amqp_empty_table);
    checkReply("exchange " + name);
}

// The broker closes the channel of whoever asks for a queue that is not there.
std::optional<uint64_t> BrokerConnection::depth(const std::string& queue) {
    const amqp_queue_declare_ok_t* found = amqp_queue_declare(m_state.get(), kChannel, borrowed(queue), true,
                                                              false, false, false, amqp_empty_table);
    if (found) return found->message_count;
    const amqp_rpc_reply_t reply = amqp_get_rpc_reply(m_state.get());
    const auto* closed =
        reply.reply_type == AMQP_RESPONSE_SERVER_EXCEPTION && reply.reply.id == AMQP_CHANNEL_CLOSE_METHOD
            ? static_cast<amqp_channel_close_t*>(reply.reply.decoded)
            : nullptr;
    if (!closed || closed->reply_code != AMQP_NOT_FOUND) checkReply("queue " + queue);
    amqp_channel_close_ok_t done{};
    check(amqp_send_method(m_state.get(), kChannel, AMQP_CHANNEL_CLOSE_OK_METHOD, &done), "a channel");
    openChannel();
    m_published = 0;
    amqp_confirm_select(m_state.get(), kChannel);
    checkReply("confirmations");
    return std::nullopt;
}

uint64_t BrokerConnection::publish(const std::string& exchange, const std::string& key,
                                   const BrokerMessage& message, bool must) {
    constexpr uint8_t kPersistent = 2;
    const std::string number = std::to_string(m_published + 1);
    const std::string expiration = std::to_string(message.expiration.count());
    BrokerTable headers(message.headers);
    amqp_basic_properties_t properties{};
    properties._flags = AMQP_BASIC_CONTENT_TYPE_FLAG | AMQP_BASIC_DELIVERY_MODE_FLAG |
                        AMQP_BASIC_HEADERS_FLAG | AMQP_BASIC_CORRELATION_ID_FLAG | AMQP_BASIC_MESSAGE_ID_FLAG;
    properties.content_type = amqp_cstring_bytes("application/json");
    properties.delivery_mode = kPersistent;
    properties.headers = headers.table();
    properties.correlation_id = borrowed(number);  // by which a message that is returned is known again
    properties.message_id = borrowed(message.id);
    if (message.expiration.count() > 0) {
        properties._flags |= AMQP_BASIC_EXPIRATION_FLAG;
        properties.expiration = borrowed(expiration);
    }
    const int status = amqp_basic_publish(m_state.get(), kChannel, borrowed(exchange), borrowed(key), must,
                                          false, &properties, borrowed(message.body));
    if (status != AMQP_STATUS_OK) m_isOpen = false;
    check(status, "publishing");
    return ++m_published;
}

void BrokerConnection::consume(const std::string& queue, uint16_t prefetch) {
    amqp_basic_qos(m_state.get(), kChannel, 0, prefetch, false);
    checkReply("prefetch");
    amqp_basic_consume(m_state.get(), kChannel, borrowed(queue), amqp_cstring_bytes("vintak"), false, false,
                       false, amqp_empty_table);
    checkReply("consuming " + queue);
}

void BrokerConnection::stopConsuming() {
    amqp_basic_cancel(m_state.get(), kChannel, amqp_cstring_bytes("vintak"));
    checkReply("stopping");
}

void BrokerConnection::acknowledge(uint64_t tag) {
    const int status = amqp_basic_ack(m_state.get(), kChannel, tag, false);
    if (status != AMQP_STATUS_OK) m_isOpen = false;
    check(status, "acknowledging");
}

void BrokerConnection::giveBack(uint64_t tag) {
    const int status = amqp_basic_nack(m_state.get(), kChannel, tag, false, true);
    if (status != AMQP_STATUS_OK) m_isOpen = false;
    check(status, "giving back");
}

BrokerMessage BrokerConnection::readMessage(uint64_t* returnedTag) {
    amqp_message_t read{};
    const amqp_rpc_reply_t reply = amqp_read_message(m_state.get(), kChannel, &read, 0);
    if (reply.reply_type != AMQP_RESPONSE_NORMAL) {
        m_isOpen = false;
        throw BrokerError(m_place + ": " + reasonOf(reply));
    }
    BrokerMessage message{.body = copyOf(read.body)};
    const amqp_basic_properties_t& properties = read.properties;
    if (properties._flags & AMQP_BASIC_MESSAGE_ID_FLAG) message.id = copyOf(properties.message_id);
    if (properties._flags & AMQP_BASIC_HEADERS_FLAG) message.headers = headersOf(properties.headers);
    if (returnedTag && properties._flags & AMQP_BASIC_CORRELATION_ID_FLAG) {
        const char* number = static_cast<const char*>(properties.correlation_id.bytes);
        (void)std::from_chars(number, number + properties.correlation_id.len, *returnedTag);
    }
    amqp_destroy_message(&read);
    return message;
}

std::optional<BrokerEvent> BrokerConnection::next(std::chrono::milliseconds patience) {
    amqp_maybe_release_buffers(m_state.get());
    amqp_frame_t frame{};
    const timeval time = toTimeval(patience);
    const int status = amqp_simple_wait_frame_noblock(m_state.get(), &frame, &time);
    if (status == AMQP_STATUS_TIMEOUT) return std::nullopt;
    if (status != AMQP_STATUS_OK) m_isOpen = false;
    check(status, "the connection is lost");
    if (frame.frame_type != AMQP_FRAME_METHOD) return std::nullopt;
    const void* decoded = frame.payload.method.decoded;
    switch (frame.payload.method.id) {
        case AMQP_BASIC_DELIVER_METHOD: {
            const uint64_t tag = static_cast<const amqp_basic_deliver_t*>(decoded)->delivery_tag;
            return BrokerEvent{
                .kind = BrokerEvent::Kind::delivery, .tag = tag, .message = readMessage(nullptr)};
        }
        case AMQP_BASIC_RETURN_METHOD: {
            BrokerEvent event{.kind = BrokerEvent::Kind::returned};
            event.message = readMessage(&event.tag);
            return event;
        }
        case AMQP_BASIC_ACK_METHOD: {
            const auto* ack = static_cast<const amqp_basic_ack_t*>(decoded);
            return confirmation(BrokerEvent::Kind::confirmed, ack->delivery_tag, ack->multiple);
        }
        case AMQP_BASIC_NACK_METHOD: {
            const auto* nack = static_cast<const amqp_basic_nack_t*>(decoded);
            return confirmation(BrokerEvent::Kind::refused, nack->delivery_tag, nack->multiple);
        }
        case AMQP_BASIC_CANCEL_METHOD:
            return BrokerEvent{.kind = BrokerEvent::Kind::cancelled};
        case AMQP_CHANNEL_CLOSE_METHOD:
        case AMQP_CONNECTION_CLOSE_METHOD:
            m_isOpen = false;
            throw BrokerError(m_place + ": closed by the broker: " + reasonIn(frame.payload.method));
        default:
            return std::nullopt;
    }
}

int BrokerConnection::descriptor() const {
    return amqp_get_sockfd(m_state.get());
}

// opcua_flood_peer: a discovery peer that floods its clients. It speaks OPC UA TCP over None
// secure channels, answers FindServers, FindServersOnNetwork and GetEndpoints with as many
// entries and as long strings as it is told, and splits large answers into chunks that fit the
// client's receive buffer. BASE below is opc.tcp://ADDRESS:PORT.
//   opcua_flood_peer ADDRESS PORT [options]      (PORT 0: any free port)
//   --find-servers N     FindServers lists itself (BASE) and N servers at BASE/s<i>
//   --on-network N       FindServersOnNetwork lists itself (BASE) and N records at BASE/n<i>
//   --capabilities N     its own FindServersOnNetwork record carries N capabilities C<i>
//   --long-url N         FindServers also lists a server whose discovery URL has a path of N
//                        characters, and GetEndpoints offers first an endpoint whose URL has it
//   --long-name N        its own application name, in every answer, has N characters (else "Flood")
//   --endpoint-url URL   GetEndpoints advertises URL (default: the URL it was asked with)
//   --endpoints N        GetEndpoints offers that endpoint N more times after the first
//   --listed-port P      the servers and records it lists are at port P of ADDRESS (default: PORT)
// Prints "ready <port>" once it listens and runs until SIGTERM or SIGINT.
#include "sim/support/raw_peer.h"
#include "sim/support/uacp_messages.h"
#include "ua/holders.h"

#include <open62541/types.h>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr uint32_t channelId = 7;
constexpr uint32_t tokenId = 1;
constexpr size_t maxConnections = 512;
// Secure conversation header of a MSG chunk: type, size, channel, token, sequence, request id.
constexpr size_t symmetricHeaderSize = 24;

struct Settings
{
    std::string base;
    std::string listedBase;
    long findServers = 0;
    long onNetwork = 0;
    long capabilities = 0;
    long longUrl = 0;
    long moreEndpoints = 0;
    std::string name = "Flood";
    std::string endpointUrl;
};

struct Connection
{
    int fd = -1;
    std::string received;
    uint32_t sendBufferSize = 8192;
    uint32_t sequenceNumber = 50;
};

uint32_t readU32(const std::string& data, size_t offset)
{
    uint32_t value = 0;
    for (int i = 3; i >= 0; --i)
        value = value << 8 | static_cast<unsigned char>(data[offset + static_cast<size_t>(i)]);
    return value;
}

void putString(std::string* out, const std::string& text)
{
    uacp::putU32(out, static_cast<uint32_t>(text.size()));
    out->append(text);
}

UA_String uaString(const std::string& text)
{
    UA_String view = {text.size(), reinterpret_cast<UA_Byte*>(const_cast<char*>(text.data()))};
    UA_String out;
    UA_String_copy(&view, &out);
    return out;
}

template <typename T>
T* newArray(size_t count, int typeIndex)
{
    return static_cast<T*>(UA_Array_new(count, &UA_TYPES[typeIndex]));
}

// The binary form of a message body: its type's encoding id, then the value.
template <typename T>
std::string encodeBody(const T& value, int typeIndex)
{
    std::string body;
    body.push_back(0x01);
    body.push_back(0x00);
    const uint32_t id = UA_TYPES[typeIndex].binaryEncodingId.identifier.numeric;
    body.push_back(static_cast<char>(id & 0xFF));
    body.push_back(static_cast<char>((id >> 8) & 0xFF));
    Ua::ByteStringHolder encoded;
    if (UA_encodeBinary(&value, &UA_TYPES[typeIndex], encoded.get()) != UA_STATUSCODE_GOOD)
        return std::string();
    body.append(reinterpret_cast<const char*>(encoded->data), encoded->length);
    return body;
}

// The numeric encoding id that starts a body, and where the value begins.
bool readTypeId(const std::string& body, uint32_t* id, size_t* length)
{
    if (body.size() >= 2 && body[0] == 0x00) {
        *id = static_cast<unsigned char>(body[1]);
        *length = 2;
        return true;
    }
    if (body.size() >= 4 && body[0] == 0x01) {
        *id = static_cast<unsigned char>(body[2]) | static_cast<uint32_t>(static_cast<unsigned char>(body[3])) << 8;
        *length = 4;
        return true;
    }
    return false;
}

template <typename T>
bool decodeRequest(const std::string& body, size_t offset, T* out, int typeIndex)
{
    UA_ByteString view = {body.size() - offset,
                          reinterpret_cast<UA_Byte*>(const_cast<char*>(body.data() + offset))};
    return UA_decodeBinary(&view, out, &UA_TYPES[typeIndex], nullptr) == UA_STATUSCODE_GOOD;
}

void answerHeader(UA_ResponseHeader* header, const UA_RequestHeader& request)
{
    header->timestamp = UA_DateTime_now();
    header->requestHandle = request.requestHandle;
    header->serviceResult = UA_STATUSCODE_GOOD;
}

UA_ApplicationDescription application(const std::string& uri, const std::string& name, const std::string& url)
{
    UA_ApplicationDescription app;
    UA_ApplicationDescription_init(&app);
    app.applicationUri = uaString(uri);
    app.applicationName.text = uaString(name);
    app.applicationType = UA_APPLICATIONTYPE_SERVER;
    app.discoveryUrls = newArray<UA_String>(1, UA_TYPES_STRING);
    if (app.discoveryUrls) {
        app.discoveryUrlsSize = 1;
        app.discoveryUrls[0] = uaString(url);
    }
    return app;
}

std::string findServers(const Settings& settings, const std::string& body, size_t offset)
{
    Ua::Value<UA_FindServersRequest, UA_TYPES_FINDSERVERSREQUEST> request;
    if (!decodeRequest(body, offset, request.get(), UA_TYPES_FINDSERVERSREQUEST))
        return std::string();
    Ua::Value<UA_FindServersResponse, UA_TYPES_FINDSERVERSRESPONSE> response;
    answerHeader(&response->responseHeader, request->requestHeader);
    // A request filtered by server URI (the stack's own handshake) matches none of these.
    if (request->serverUrisSize > 0)
        return encodeBody(*response, UA_TYPES_FINDSERVERSRESPONSE);
    std::vector<UA_ApplicationDescription> apps;
    apps.push_back(application("urn:flood:self", settings.name, settings.base));
    for (long i = 0; i < settings.findServers; ++i) {
        const std::string n = std::to_string(i);
        apps.push_back(application("urn:flood:s" + n, "S" + n, settings.listedBase + "/s" + n));
    }
    if (settings.longUrl > 0)
        apps.push_back(application("urn:flood:long", "Long", settings.base + "/" + std::string(settings.longUrl, 'u')));
    response->servers = newArray<UA_ApplicationDescription>(apps.size(), UA_TYPES_APPLICATIONDESCRIPTION);
    if (!response->servers) {
        for (UA_ApplicationDescription& app : apps)
            UA_ApplicationDescription_clear(&app);
        return std::string();
    }
    response->serversSize = apps.size();
    std::copy(apps.begin(), apps.end(), response->servers);
    return encodeBody(*response, UA_TYPES_FINDSERVERSRESPONSE);
}

UA_ServerOnNetwork record(uint32_t id, const std::string& name, const std::string& url)
{
    UA_ServerOnNetwork entry;
    UA_ServerOnNetwork_init(&entry);
    entry.recordId = id;
    entry.serverName = uaString(name);
    entry.discoveryUrl = uaString(url);
    return entry;
}

std::string findServersOnNetwork(const Settings& settings, const std::string& body, size_t offset)
{
    Ua::Value<UA_FindServersOnNetworkRequest, UA_TYPES_FINDSERVERSONNETWORKREQUEST> request;
    if (!decodeRequest(body, offset, request.get(), UA_TYPES_FINDSERVERSONNETWORKREQUEST))
        return std::string();
    Ua::Value<UA_FindServersOnNetworkResponse, UA_TYPES_FINDSERVERSONNETWORKRESPONSE> response;
    answerHeader(&response->responseHeader, request->requestHeader);
    const size_t count = 1 + static_cast<size_t>(settings.onNetwork);
    response->servers = newArray<UA_ServerOnNetwork>(count, UA_TYPES_SERVERONNETWORK);
    if (!response->servers)
        return std::string();
    response->serversSize = count;
    response->servers[0] = record(0, settings.name, settings.base);
    if (settings.capabilities > 0) {
        UA_ServerOnNetwork& self = response->servers[0];
        self.serverCapabilities = newArray<UA_String>(static_cast<size_t>(settings.capabilities), UA_TYPES_STRING);
        if (self.serverCapabilities) {
            self.serverCapabilitiesSize = static_cast<size_t>(settings.capabilities);
            for (long i = 0; i < settings.capabilities; ++i)
                self.serverCapabilities[i] = uaString("C" + std::to_string(i));
        }
    }
    for (size_t i = 1; i < count; ++i) {
        const std::string n = std::to_string(i - 1);
        response->servers[i] = record(static_cast<uint32_t>(i), "N" + n, settings.listedBase + "/n" + n);
    }
    return encodeBody(*response, UA_TYPES_FINDSERVERSONNETWORKRESPONSE);
}

UA_EndpointDescription endpoint(const Settings& settings, const std::string& url)
{
    UA_EndpointDescription description;
    UA_EndpointDescription_init(&description);
    description.endpointUrl = uaString(url);
    description.securityMode = UA_MESSAGESECURITYMODE_NONE;
    description.securityPolicyUri = uaString("http://opcfoundation.org/UA/SecurityPolicy#None");
    description.transportProfileUri =
        uaString("http://opcfoundation.org/UA-Profile/Transport/uatcp-uasc-uabinary");
    description.server.applicationUri = uaString("urn:flood:self");
    description.server.applicationName.text = uaString(settings.name);
    description.server.applicationType = UA_APPLICATIONTYPE_SERVER;
    description.userIdentityTokens = newArray<UA_UserTokenPolicy>(1, UA_TYPES_USERTOKENPOLICY);
    if (description.userIdentityTokens) {
        description.userIdentityTokensSize = 1;
        description.userIdentityTokens[0].policyId = uaString("anonymous");
        description.userIdentityTokens[0].tokenType = UA_USERTOKENTYPE_ANONYMOUS;
    }
    return description;
}

std::string getEndpoints(const Settings& settings, const std::string& body, size_t offset)
{
    Ua::Value<UA_GetEndpointsRequest, UA_TYPES_GETENDPOINTSREQUEST> request;
    if (!decodeRequest(body, offset, request.get(), UA_TYPES_GETENDPOINTSREQUEST))
        return std::string();
    Ua::Value<UA_GetEndpointsResponse, UA_TYPES_GETENDPOINTSRESPONSE> response;
    answerHeader(&response->responseHeader, request->requestHeader);
    const std::string asked(reinterpret_cast<const char*>(request->endpointUrl.data), request->endpointUrl.length);
    std::vector<UA_EndpointDescription> endpoints;
    if (settings.longUrl > 0)
        endpoints.push_back(endpoint(settings, settings.base + "/" + std::string(settings.longUrl, 'e')));
    for (long i = 0; i <= settings.moreEndpoints; ++i)
        endpoints.push_back(endpoint(settings, settings.endpointUrl.empty() ? asked : settings.endpointUrl));
    response->endpoints = newArray<UA_EndpointDescription>(endpoints.size(), UA_TYPES_ENDPOINTDESCRIPTION);
    if (!response->endpoints) {
        for (UA_EndpointDescription& description : endpoints)
            UA_EndpointDescription_clear(&description);
        return std::string();
    }
    response->endpointsSize = endpoints.size();
    std::copy(endpoints.begin(), endpoints.end(), response->endpoints);
    return encodeBody(*response, UA_TYPES_GETENDPOINTSRESPONSE);
}

bool sendAll(int fd, const std::string& data)
{
    size_t sent = 0;
    while (sent < data.size()) {
        const ssize_t n = ::send(fd, data.data() + sent, data.size() - sent, MSG_NOSIGNAL);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        sent += static_cast<size_t>(n);
    }
    return true;
}

// Sends a service answer as MSG chunks that each fit the client's receive buffer.
bool sendMessage(Connection* connection, uint32_t requestId, const std::string& body)
{
    const size_t room = connection->sendBufferSize - symmetricHeaderSize;
    size_t offset = 0;
    do {
        const size_t part = std::min(room, body.size() - offset);
        const bool last = offset + part == body.size();
        std::string chunk = last ? "MSGF" : "MSGC";
        uacp::putU32(&chunk, static_cast<uint32_t>(symmetricHeaderSize + part));
        uacp::putU32(&chunk, channelId);
        uacp::putU32(&chunk, tokenId);
        uacp::putU32(&chunk, ++connection->sequenceNumber);
        uacp::putU32(&chunk, requestId);
        chunk.append(body, offset, part);
        if (!sendAll(connection->fd, chunk))
            return false;
        offset += part;
    } while (offset < body.size());
    return true;
}

bool acknowledge(Connection* connection, const std::string& hello)
{
    if (hello.size() < 28)
        return false;
    // Hello: header, protocol version, receive buffer size, send buffer size, ...
    connection->sendBufferSize = std::min<uint32_t>(65535, std::max<uint32_t>(8192, readU32(hello, 12)));
    std::string ack = "ACKF";
    uacp::putU32(&ack, 28);
    uacp::putU32(&ack, 0);
    uacp::putU32(&ack, 65535);
    uacp::putU32(&ack, connection->sendBufferSize);
    uacp::putU32(&ack, 0);
    uacp::putU32(&ack, 0);
    return sendAll(connection->fd, ack);
}

bool openChannel(Connection* connection, const std::string& message)
{
    // Header, channel id, policy URI, sender certificate, receiver thumbprint, sequence number,
    // request id, body.
    size_t offset = 12;
    for (int field = 0; field < 3; ++field) {
        if (message.size() < offset + 4)
            return false;
        const uint32_t length = readU32(message, offset);
        offset += 4 + (length == 0xFFFFFFFFu ? 0 : length);
    }
    if (message.size() < offset + 8)
        return false;
    const uint32_t requestId = readU32(message, offset + 4);
    const std::string body = message.substr(offset + 8);
    uint32_t id = 0;
    size_t idLength = 0;
    Ua::Value<UA_OpenSecureChannelRequest, UA_TYPES_OPENSECURECHANNELREQUEST> request;
    if (!readTypeId(body, &id, &idLength) || !decodeRequest(body, idLength, request.get(), UA_TYPES_OPENSECURECHANNELREQUEST))
        return false;
    Ua::Value<UA_OpenSecureChannelResponse, UA_TYPES_OPENSECURECHANNELRESPONSE> response;
    answerHeader(&response->responseHeader, request->requestHeader);
    response->securityToken.channelId = channelId;
    response->securityToken.tokenId = tokenId;
    response->securityToken.createdAt = UA_DateTime_now();
    response->securityToken.revisedLifetime = request->requestedLifetime ? request->requestedLifetime : 600000;
    std::string out = "OPNF";
    uacp::putU32(&out, 0);
    uacp::putU32(&out, channelId);
    putString(&out, "http://opcfoundation.org/UA/SecurityPolicy#None");
    uacp::putU32(&out, 0xFFFFFFFFu);
    uacp::putU32(&out, 0xFFFFFFFFu);
    uacp::putU32(&out, ++connection->sequenceNumber);
    uacp::putU32(&out, requestId);
    out += encodeBody(*response, UA_TYPES_OPENSECURECHANNELRESPONSE);
    const uint32_t size = static_cast<uint32_t>(out.size());
    for (int i = 0; i < 4; ++i)
        out[4 + static_cast<size_t>(i)] = static_cast<char>((size >> (8 * i)) & 0xFF);
    return sendAll(connection->fd, out);
}

bool answerService(const Settings& settings, Connection* connection, const std::string& message)
{
    if (message.size() < symmetricHeaderSize || message[3] != 'F')
        return false;
    const uint32_t requestId = readU32(message, 20);
    const std::string body = message.substr(symmetricHeaderSize);
    uint32_t id = 0;
    size_t idLength = 0;
    if (!readTypeId(body, &id, &idLength))
        return false;
    std::string answer;
    if (id == UA_TYPES[UA_TYPES_FINDSERVERSREQUEST].binaryEncodingId.identifier.numeric)
        answer = findServers(settings, body, idLength);
    else if (id == UA_TYPES[UA_TYPES_FINDSERVERSONNETWORKREQUEST].binaryEncodingId.identifier.numeric)
        answer = findServersOnNetwork(settings, body, idLength);
    else if (id == UA_TYPES[UA_TYPES_GETENDPOINTSREQUEST].binaryEncodingId.identifier.numeric)
        answer = getEndpoints(settings, body, idLength);
    return !answer.empty() && sendMessage(connection, requestId, answer);
}

// Reads what arrived and answers every complete message. False when the connection ends.
bool serve(const Settings& settings, Connection* connection)
{
    char buffer[65536];
    const ssize_t n = ::recv(connection->fd, buffer, sizeof buffer, 0);
    if (n <= 0)
        return n < 0 && (errno == EINTR || errno == EAGAIN);
    connection->received.append(buffer, static_cast<size_t>(n));
    while (connection->received.size() >= 8) {
        const uint32_t size = readU32(connection->received, 4);
        if (size < 8 || size > (1u << 24))
            return false;
        if (connection->received.size() < size)
            return true;
        const std::string message = connection->received.substr(0, size);
        connection->received.erase(0, size);
        const std::string type = message.substr(0, 3);
        bool ok = false;
        if (type == "HEL")
            ok = acknowledge(connection, message);
        else if (type == "OPN")
            ok = openChannel(connection, message);
        else if (type == "MSG")
            ok = answerService(settings, connection, message);
        if (!ok)
            return false;
    }
    return true;
}

bool readCount(const char* text, long* out)
{
    char* end = nullptr;
    const long value = std::strtol(text, &end, 10);
    if (!end || *end || value < 0 || value > 10000000)
        return false;
    *out = value;
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc < 3) {
        std::fprintf(stderr, "usage: opcua_flood_peer ADDRESS PORT [--find-servers N] [--on-network N] "
                             "[--capabilities N] [--long-url N] [--long-name N] [--endpoint-url URL] [--endpoints N] "
                             "[--listed-port P]\n");
        return 2;
    }
    Settings settings;
    long listedPort = 0;
    for (int i = 3; i + 1 < argc + 1; i += 2) {
        const std::string option = argv[i];
        if (i + 1 >= argc) {
            std::fprintf(stderr, "opcua_flood_peer: %s needs a value\n", option.c_str());
            return 2;
        }
        bool ok = true;
        if (option == "--find-servers")
            ok = readCount(argv[i + 1], &settings.findServers);
        else if (option == "--on-network")
            ok = readCount(argv[i + 1], &settings.onNetwork);
        else if (option == "--capabilities")
            ok = readCount(argv[i + 1], &settings.capabilities);
        else if (option == "--long-url")
            ok = readCount(argv[i + 1], &settings.longUrl);
        else if (option == "--long-name") {
            long length = 0;
            ok = readCount(argv[i + 1], &length);
            settings.name.assign(static_cast<size_t>(length), 'N');
        }
        else if (option == "--listed-port")
            ok = readCount(argv[i + 1], &listedPort) && listedPort > 0 && listedPort <= 65535;
        else if (option == "--endpoint-url")
            settings.endpointUrl = argv[i + 1];
        else if (option == "--endpoints")
            ok = readCount(argv[i + 1], &settings.moreEndpoints);
        else
            ok = false;
        if (!ok) {
            std::fprintf(stderr, "opcua_flood_peer: bad option %s %s\n", option.c_str(), argv[i + 1]);
            return 2;
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
    int port = 0;
    const int listener = raw_peer::listenAndAnnounce("opcua_flood_peer", argv[1], argv[2], &port);
    if (listener < 0)
        return 1;
    const std::string host = argv[1];
    settings.base = "opc.tcp://" + host + ":" + std::to_string(port);
    settings.listedBase = listedPort > 0 ? "opc.tcp://" + host + ":" + std::to_string(listedPort) : settings.base;
    const auto accepted = [](int fd) {
        // Answers go out at once, not held back for the client's acknowledgements.
        const int one = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
        Connection connection;
        connection.fd = fd;
        return connection;
    };
    return raw_peer::serveConnections<Connection>(listener, maxConnections, accepted,
                                                  [&settings](Connection* c) { return serve(settings, c); });
}

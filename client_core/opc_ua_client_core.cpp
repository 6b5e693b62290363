#include "client_core/opc_ua_client_core.h"

#include "common/opc_tcp_scheme.h"
#include "common/security_settings.h"
#include "ua/text.h"

#include <QDebug>
#include <QFile>
#include <QMutexLocker>
#include <QRegExp>

#include <cstdio>
#include <cstring>
#include <string.h>
#include <utility>

PluginInterface ClientCore::pluginInterface;
QMutex ClientCore::pluginInterfaceMutex;
ClientCore::WipedSecretsObserver ClientCore::wipedSecretsObserver = nullptr;

// Whole-string base64 test, kept for the value-conversion family of the class.
QRegExp rxOpaque(QStringLiteral("^([A-Za-z0-9+\\/]{4})*([A-Za-z0-9+\\/]{3}=|[A-Za-z0-9+\\/]{2}==)?$"));

// Labels of the stack's log categories, indexed by category number.
const char* const logCategoryNames[10] = {
    "[network]", "[channel]", "[session]", "[server]",  "[client]",
    "[userland]", "[securitypolicy]", "[eventloop]", "[pubsub]", "[discovery]",
};

namespace {

const char* const defaultCertificateName = "ovrin_cert.der";
const char* const defaultKeyName = "ovrin_key.der";

// The stack's normal chatter while it discovers and connects to servers it does not know yet.
const char* const noiseFragments[] = {
    "already initiated",
    "skip verifying ApplicationURI",
    "different EndpointUrl",
    "No suitable endpoint found",
    "Empty trustlist",
    "Could not open a TCP connection",
    "No certificate store configured",
};

// Every core's stack messages go through loggerMethod. Shared and never cleared, so no client
// frees it and a core that moves leaves nothing behind that points at it.
UA_Logger coreLogger = {&ClientCore::loggerMethod, nullptr, nullptr};

QString fileSetting(DeviceInstancePlugin& plugin, const QString& key, const char* defaultName)
{
    const QString value = plugin.settings[key];
    if (value.isEmpty() || value == QLatin1String("0"))
        return QString::fromLatin1(defaultName);
    return value;
}

void replaceString(UA_String* target, const QString& text)
{
    UA_String_clear(target);
    *target = Ua::toUaString(text).release();
}

// A user name travels encrypted, so it needs the certificate even on an unsecured channel.
bool needsCertificate(DeviceInstancePlugin& plugin, const DeviceSecurity& security)
{
    return !(securityModeFromNumber(security.mode) == SecurityMode::None
             && security.policyUri == QLatin1String(kSecurityPolicyNoneUri)
             && plugin.settings[QStringLiteral("username")].isEmpty());
}

// The stack's defaults with the device's certificate and key, wiped from memory once the stack
// has its copies. A missing file degrades to an unencrypted configuration instead of failing.
UA_StatusCode setCertificateDefaults(const ClientCore& core, DeviceInstancePlugin& plugin, UA_ClientConfig* config,
                                     const QString& filesPath)
{
    const QString certificatePath =
        filesPath + fileSetting(plugin, QStringLiteral("certificate"), defaultCertificateName);
    const QString keyPath = filesPath + fileSetting(plugin, QStringLiteral("key"), defaultKeyName);

    QByteArray certificate = core.loadFile(certificatePath);
    if (certificate.isEmpty())
        qCritical() << "[" << ClientCore::logTag << "]" << "Could not read the certificate";
    QByteArray key = core.loadFile(keyPath);
    if (key.isEmpty())
        qCritical() << "[" << ClientCore::logTag << "]" << "Could not read the key";

    UA_StatusCode status = UA_STATUSCODE_GOOD;
    if (!certificate.isEmpty() && !key.isEmpty())
        status = Ua::setDefaultEncryptionConfig(config, Ua::borrow(certificate), Ua::borrow(key));
    else
        status = Ua::setDefaultConfig(config);
    Ua::acceptAllServerCertificates(config);

    core.clearByteArraySecurely(key);
    core.clearByteArraySecurely(certificate);
    if (ClientCore::wipedSecretsObserver)
        ClientCore::wipedSecretsObserver(key, certificate);
    return status;
}

// How the client names itself to servers.
void describeClient(UA_ClientConfig* config, const QString& clientName)
{
    const QString applicationUri = QStringLiteral("urn:ovrin-connect-client-") + clientName;
    replaceString(&config->clientDescription.applicationUri, applicationUri);
    replaceString(&config->clientDescription.productUri, applicationUri);
    UA_LocalizedText_clear(&config->clientDescription.applicationName);
    config->clientDescription.applicationName = UA_LOCALIZEDTEXT_ALLOC("en", "OVRIN Connect client");
}

QString formatLogMessage(const char* format, va_list args)
{
    char small[512];
    va_list sizing;
    va_copy(sizing, args);
    const int needed = std::vsnprintf(small, sizeof small, format, sizing);
    va_end(sizing);
    if (needed < 0)
        return QString();
    if (static_cast<size_t>(needed) < sizeof small)
        return QString::fromUtf8(small, needed);
    QByteArray large(needed + 1, Qt::Uninitialized);
    std::vsnprintf(large.data(), static_cast<size_t>(needed) + 1, format, args);
    return QString::fromUtf8(large.constData(), needed);
}

bool isNoise(const QString& text)
{
    for (const char* fragment : noiseFragments) {
        if (text.contains(QLatin1String(fragment)))
            return true;
    }
    return false;
}

} // namespace

ClientCore::ClientCore(DeviceInstancePlugin& plugin, QString filesPath, QString clientName, int timeoutMs)
    : client(Ua::newClient(&coreLogger))
    , filesPath(std::move(filesPath))
    , clientName(std::move(clientName))
    , timeoutMs(timeoutMs)
{
    if (configure(plugin))
        connectOpcServer(&plugin);
}

ClientCore::~ClientCore()
{
    if (client)
        disconnectOpcServer();
}

bool ClientCore::configure(DeviceInstancePlugin& plugin)
{
    if (!client)
        return false;

    const DeviceSecurity security = deviceSecurity(plugin.settings);
    // The logger was set when the client was made; the defaults below keep it.
    UA_ClientConfig* config = UA_Client_getConfig(client.get());

    const UA_StatusCode status = needsCertificate(plugin, security)
        ? setCertificateDefaults(*this, plugin, config, filesPath)
        : Ua::setDefaultConfig(config);
    if (status != UA_STATUSCODE_GOOD) {
        qCritical() << "[" << logTag << "]" << "Could not configure the OPC-UA client:"
                    << UA_StatusCode_name(status);
        return false;
    }

    Ua::applyConnectionLimits(config, Ua::itemClientLimits);
    describeClient(config, clientName);
    // The number as the device has it, also one that names no mode.
    config->securityMode = static_cast<UA_MessageSecurityMode>(security.mode);
    replaceString(&config->securityPolicyUri, security.policyUri);
    if (timeoutMs > 0)
        config->timeout = static_cast<UA_UInt32>(qBound(1000, timeoutMs, 300000));
    return true;
}

bool ClientCore::connectOpcServer(DeviceInstancePlugin* plugin)
{
    if (!client)
        return false;

    const QDateTime now = QDateTime::currentDateTimeUtc();
    const qint64 sinceLastAttempt = lastConnectAttempt.isValid() ? lastConnectAttempt.msecsTo(now) : 0;
    // A clock that went back gives a negative span, which as unsigned never blocks an attempt.
    if (connecting || isConnected()
        || (lastConnectAttempt.isValid() && static_cast<quint64>(sinceLastAttempt) <= 4999))
        return isConnected();
    if (!plugin)
        return isConnected();

    disconnectOpcServer();
    lastConnectAttempt = QDateTime::currentDateTimeUtc();
    connecting = true;

    plugin->address.remove(QLatin1Char(' '));
    const QByteArray urlUtf8 = withOpcTcpScheme(plugin->address).toUtf8();

    // The stack may take over the endpoint URL the server advertises (FindServers, GetEndpoints),
    // but it opens every TCP connection to the host of the URL given here: a server that
    // advertises a name the gateway cannot resolve is still reached at its configured address.
    UA_StatusCode status;
    const QString userName = plugin->settings[QStringLiteral("username")];
    if (userName.isEmpty()) {
        status = UA_Client_connect(client.get(), urlUtf8.constData());
    } else {
        const QByteArray userUtf8 = userName.toUtf8();
        QByteArray passwordUtf8 = plugin->settings[QStringLiteral("password")].toUtf8();
        status = UA_Client_connectUsername(client.get(), urlUtf8.constData(), userUtf8.constData(),
                                           passwordUtf8.constData());
        clearByteArraySecurely(passwordUtf8);
    }
    connecting = false;

    if (status == UA_STATUSCODE_GOOD) {
        disconnectLogged = false;
        return true;
    }
    plugin->statusText = Ua::statusCodeName(status);
    disconnectOpcServer();
    logDisconnectOnce(plugin);
    return false;
}

bool ClientCore::disconnectOpcServer()
{
    if (!client)
        return false;
    return UA_Client_disconnect(client.get()) == UA_STATUSCODE_GOOD;
}

bool ClientCore::isConnected() const
{
    if (!client)
        return false;
    // Only the secure channel counts; the session state is deliberately not consulted.
    UA_SecureChannelState channelState = UA_SECURECHANNELSTATE_CLOSED;
    UA_Client_getState(client.get(), &channelState, nullptr, nullptr);
    return channelState == UA_SECURECHANNELSTATE_OPEN;
}

void ClientCore::logDisconnectOnce(DeviceInstancePlugin* plugin)
{
    if (!plugin || disconnectLogged)
        return;
    disconnectLogged = true;
    qWarning() << "<warning>"
               << QStringLiteral("Disconnected from %1: %2").arg(plugin->instanceName, plugin->statusText);
}

QByteArray ClientCore::loadFile(const QString& path) const
{
    QFile file(path);
    // Unbuffered, so that no copy of a key is left behind in the device's own buffer.
    if (!file.open(QIODevice::ReadOnly | QIODevice::Unbuffered)) {
        qWarning() << QStringLiteral("[%1] Could not read %2 key").arg(QLatin1String(logTag), path);
        return QByteArray();
    }
    const bool pem = path.endsWith(QLatin1String(".pem"));
    QByteArray data;
    // Reserving the final size up front keeps the bytes in one allocation that the caller wipes.
    const qint64 expected = file.size();
    if (expected > 0 && expected < (1 << 30))
        data.reserve(static_cast<int>(expected) + 1);
    char chunk[4096];
    for (;;) {
        const qint64 count = file.read(chunk, sizeof chunk);
        if (count <= 0)
            break;
        data.append(chunk, static_cast<int>(count));
    }
    explicit_bzero(chunk, sizeof chunk);
    // PEM text reaches the stack NUL-terminated.
    if (pem)
        data.append('\0');
    return data;
}

bool ClientCore::clearByteArraySecurely(QByteArray& data) const
{
    data.detach();
    const int size = data.size();
    if (size > 0)
        explicit_bzero(data.data(), static_cast<size_t>(size));
    if (size == 0)
        return true;
    // Deliberately only one byte is checked; for a one-byte buffer it is the terminator.
    if (data.constData()[1] == 0)
        return true;
    qCritical() << "OPC-UA Client: Could not clear the key, data may be leaked";
    return false;
}

void ClientCore::loggerMethod(void* context, UA_LogLevel level, UA_LogCategory category, const char* format,
                              va_list args)
{
    Q_UNUSED(context);
    const char* tag = nullptr;
    QString text;
    // Trace, debug and info are never written, so they are not formatted either.
    if (format && (level == UA_LOGLEVEL_WARNING || level == UA_LOGLEVEL_ERROR || level == UA_LOGLEVEL_FATAL)) {
        const int index = static_cast<int>(category);
        const char* label = (index >= 0 && index < 10) ? logCategoryNames[index] : nullptr;
        text = QString::fromLatin1(label ? label : "") + QLatin1Char(' ') + formatLogMessage(format, args);
        if (level == UA_LOGLEVEL_FATAL || !isNoise(text))
            tag = level == UA_LOGLEVEL_WARNING ? "<warning>" : "<error>";
    }
    QMutexLocker lock(&pluginInterfaceMutex);
    if (tag)
        qWarning() << tag << text;
}

#pragma once

#include "framework/device_instance_plugin.h"
#include "framework/plugin_interface.h"
#include "ua/client.h"
#include "ua/holders.h"

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <cstdarg>
#include <functional>

class BrowseItems;

// The gateway's OPC UA client core: one stack client for one device instance.
class ClientCore
{
public:
    // One browsed variable that the connector can read or write, every text spelled out; a walk
    // holds its items compactly (BrowseItems) and gives this form on request.
    struct BrowseItem
    {
        QString nodeId;
        QString browsePath;
        QString description;
        QString dataType;
        bool readable = true;
        bool writable = false;
        bool isArray = false;
    };

    // One configured data point for read and write.
    struct Node
    {
        // The arrayIndex that stands for the whole value rather than one element.
        static constexpr quint16 wholeArray = 65535;

        quint16 namespaceIndex = 0;
        QString identifier;
        qint32 dataTypeKind = 0;
        QString value;
        QDateTime timestamp;
        QString error;
        QString fullNodeId;
        bool useFullNodeId = false;
        quint32 readMode = 0;
        qint64 historyStartMs = 0;
        qint64 historyEndMs = 0;
        quint16 arrayIndex = wholeArray;
        quint8 floatingPointPrecision = 4;
    };

    ClientCore(DeviceInstancePlugin& plugin, QString filesPath, QString clientName, int timeoutMs);
    ClientCore(ClientCore&& other) = default;
    ClientCore& operator=(ClientCore&& other) = default;
    ~ClientCore();

    ClientCore(const ClientCore&) = delete;
    ClientCore& operator=(const ClientCore&) = delete;

    bool configure(DeviceInstancePlugin& plugin);
    bool connectOpcServer(DeviceInstancePlugin* plugin);
    bool disconnectOpcServer();
    bool isConnected() const;
    void logDisconnectOnce(DeviceInstancePlugin* plugin);
    QByteArray loadFile(const QString& path) const;
    bool clearByteArraySecurely(QByteArray& data) const;
    static void loggerMethod(void* context, UA_LogLevel level, UA_LogCategory category, const char* format,
                             va_list args);

    // How the browse asks the server: one request per question, each for one node, as the walk
    // asks (the reference), or requests of many nodes fetched ahead of the walk. The items and
    // warnings are the same.
    enum class BrowseFetch { OneByOne, Batched };

    bool browseNodes(BrowseItems* items, QStringList* warnings, const std::function<void()>& progress,
                     BrowseFetch fetch = BrowseFetch::OneByOne);

    bool readNode(Node* node);
    bool convertValueToNode(Node* node, UA_Variant* value);
    bool writeNode(Node* node);
    static bool convertValue(Node* node, UA_Variant* value);
    // The node's text as a value of its type; an empty holder when the text cannot be converted.
    static Ua::VariantHolder convertToVariant(Node* node, QString text);

    static PluginInterface pluginInterface;
    static QMutex pluginInterfaceMutex;

    // The module name in the client core's own messages.
    static constexpr const char* logTag = "opc_ua_client";

    // The stack client this object owns (null after a move-from); for inspection only.
    UA_Client* stackClient() const { return client.get(); }

    // Called by configure with the certificate and key buffers right after they were wiped,
    // so that a test can check that no secret byte is left in them. Null in production.
    using WipedSecretsObserver = void (*)(const QByteArray& key, const QByteArray& certificate);
    static WipedSecretsObserver wipedSecretsObserver;

private:
    Ua::Client client;
    QString filesPath;
    QString clientName;
    qint32 timeoutMs = 0;
    QDateTime lastConnectAttempt;
    bool connecting = false;
    bool disconnectLogged = false;
};

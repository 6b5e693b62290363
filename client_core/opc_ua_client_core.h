#pragma once

#include "client_core/browse.h"
#include "client_core/node_read.h"
#include "framework/device_instance_plugin.h"
#include "framework/plugin_interface.h"
#include "ua/client.h"
#include "ua/holders.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <open62541/client.h>
#include <open62541/plugin/log.h>

#include <cstdarg>
#include <functional>

// The gateway's OPC UA client core: one stack client for one device instance.
class ClientCore
{
public:
    // The types of the parts, under the names callers know.
    using BrowseItem = ::BrowseItem;
    using BrowseFetch = ::BrowseFetch;
    using Node = DataPoint;

    // Configuration and connection (opc_ua_client_core.cpp).
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

    // The address-space walk (browse.h, browse.cpp).
    bool browseNodes(BrowseItems* items, QStringList* warnings, const std::function<void()>& progress,
                     BrowseFetch fetch = BrowseFetch::OneByOne);

    // Read and history read (node_read.h, node_read.cpp).
    bool readNode(Node* node);
    bool convertValueToNode(Node* node, UA_Variant* value);

    // Write (node_write.cpp).
    bool writeNode(Node* node);

    // A value as the node's text, and back (value_conversion.cpp).
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

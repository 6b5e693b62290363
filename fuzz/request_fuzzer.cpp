// The readers of a request document: the scan options, the time-out and the target device.
#include "app/device_config.h"
#include "common/request_timeout.h"
#include "discovery/options.h"
#include "fuzz/fuzz_input.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QJsonDocument document = QJsonDocument::fromJson(fuzz_input::bytes(data, size));
    if (!document.isObject())
        return 0;
    const QJsonObject request = document.object();

    QStringList warnings;
    const OpcUaDiscovery::Options options = OpcUaDiscovery::optionsFromRequest(request, &warnings);
    if (options.timeoutMs < 1000 || options.timeoutMs > 300000 || options.tcpPorts.isEmpty()
        || options.tcpPorts.size() > 64 || options.tcpPorts.contains(0) || !warnings.isEmpty())
        std::abort();

    const int timeoutMs = readTimeoutMs(request, 5000);
    if (timeoutMs < 1000 || timeoutMs > 300000)
        std::abort();

    QJsonObject device;
    if (targetDevice(request, &device)) {
        DiscoveryDeviceConfig config;
        QString error;
        const bool parsed = parseDeviceConfig(device, &config, &error);
        if (parsed == config.address.isEmpty() || (parsed && config.fields.size() != 6))
            std::abort();
    }
    DiscoveryDeviceConfig whole;
    QString error;
    parseDeviceConfig(request, &whole, &error);
    return 0;
}


#include "tests/client_core/sim_fixture.h"

#include "sim/support/process_runner.h"

#include <QElapsedTimer>
#include <QFileInfo>
#include <QThread>

namespace client_core_test {

const char* const noneUri = "http://opcfoundation.org/UA/SecurityPolicy#None";
const char* const basic256Sha256Uri = "http://opcfoundation.org/UA/SecurityPolicy#Basic256Sha256";

bool simAvailable(QString* why)
{
    if (QFileInfo::exists(test_support::simExecutable()))
        return true;
    *why = QStringLiteral("%1 was not built").arg(test_support::simExecutable());
    return false;
}

DeviceInstancePlugin simPlugin(const test_support::SimServer& sim, const QString& mode, const QString& policy)
{
    DeviceInstancePlugin plugin;
    plugin.instanceName = QStringLiteral("Simulated PLC");
    plugin.address = sim.endpointUrl();
    plugin.settings[QStringLiteral("security_mode")] = mode;
    plugin.settings[QStringLiteral("security_policies")] = policy;
    return plugin;
}

QJsonObject presetScenario(const QJsonArray& presets)
{
    return QJsonObject{{"address_space", QJsonObject{{"presets", presets}, {"hide_server_object", true}}}};
}

int settledStat(const test_support::SimServer& sim, const QString& key)
{
    // The simulator rewrites its stats file after answering; wait until two reads agree.
    QElapsedTimer timer;
    timer.start();
    int last = sim.stats().value(key).toInt(-1);
    while (timer.elapsed() < 3000) {
        QThread::msleep(100);
        const int now = sim.stats().value(key).toInt(-1);
        if (now == last)
            return now;
        last = now;
    }
    return last;
}

} // namespace client_core_test

// The text of a data point converted to a value for a write, for every data type kind.
#include "client_core/opc_ua_client_core.h"
#include "fuzz/fuzz_input.h"

#include <QtGlobal>

namespace {

void dropMessage(QtMsgType, const QMessageLogContext&, const QString&) {}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    static const bool quiet = (qInstallMessageHandler(dropMessage), true);
    (void)quiet;
    if (size < 2)
        return 0;
    ClientCore::Node node;
    node.dataTypeKind = data[0] % (UA_DATATYPEKIND_DIAGNOSTICINFO + 2);
    // Mostly the whole array, else one element.
    node.arrayIndex = (data[1] & 1) ? 65535 : data[1] >> 1;
    ClientCore::convertToVariant(&node, QString::fromUtf8(fuzz_input::bytes(data + 2, size - 2)));
    return 0;
}

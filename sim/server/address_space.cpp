#include "sim/server/address_space.h"

#include "ua/holders.h"

#include <open62541/plugin/historydata/history_data_backend_memory.h>
#include <open62541/plugin/historydata/history_data_gathering_default.h>
#include <open62541/plugin/historydata/history_database_default.h>

#include <QByteArray>

#include <functional>
#include <vector>

namespace opcua_sim {

namespace {

constexpr UA_Byte readAccess = UA_ACCESSLEVELMASK_READ;
constexpr UA_Byte readWriteAccess = UA_ACCESSLEVELMASK_READ | UA_ACCESSLEVELMASK_WRITE;

// The history gathering lives as long as the server configuration that owns its database.
UA_HistoryDataGathering historyGathering;
bool historyConfigured = false;
// The gathering does not free the backends of its nodes.
std::vector<UA_HistoryDataBackend> historyBackends;

// The server copies node ids, so the text only has to live as long as the node id is used.
UA_NodeId simNode(const QByteArray& id)
{
    return UA_NODEID_STRING(1, const_cast<char*>(id.constData()));
}

UA_NodeId simNode(const char* id)
{
    return UA_NODEID_STRING(1, const_cast<char*>(id));
}

struct Builder
{
    UA_Server* server;
    QString* error;
    bool ok = true;

    bool check(UA_StatusCode status, const QByteArray& id)
    {
        if (status != UA_STATUSCODE_GOOD && ok) {
            *error = QStringLiteral("adding node %1 failed: %2")
                         .arg(QString::fromUtf8(id), QString::fromLatin1(UA_StatusCode_name(status)));
            ok = false;
        }
        return ok;
    }

    // Browse and display name are the last dot-separated part of the id.
    static QByteArray leafName(const QByteArray& id) { return id.mid(id.lastIndexOf('.') + 1); }

    bool object(const QByteArray& id, const UA_NodeId& parent, bool folder = true)
    {
        return namedObject(id, parent, leafName(id), leafName(id), folder);
    }

    bool namedObject(const QByteArray& id, const UA_NodeId& parent, const QByteArray& browseName,
                     const QByteArray& displayName, bool folder = true)
    {
        if (!ok)
            return false;
        UA_ObjectAttributes attr = UA_ObjectAttributes_default;
        attr.displayName = UA_LOCALIZEDTEXT(const_cast<char*>("en"), const_cast<char*>(displayName.constData()));
        return check(UA_Server_addObjectNode(server, simNode(id), parent, UA_NODEID_NUMERIC(0, UA_NS0ID_ORGANIZES),
                                             UA_QUALIFIEDNAME(1, const_cast<char*>(browseName.constData())),
                                             UA_NODEID_NUMERIC(0, folder ? UA_NS0ID_FOLDERTYPE : UA_NS0ID_BASEOBJECTTYPE),
                                             attr, nullptr, nullptr),
                     id);
    }

    bool variable(const QByteArray& id, const UA_NodeId& parent, const UA_Variant& value, const UA_NodeId& dataType,
                  UA_Byte accessLevel, UA_UInt32 reference = UA_NS0ID_ORGANIZES, bool historizing = false)
    {
        return namedVariable(id, parent, leafName(id), leafName(id), value, dataType, accessLevel, reference,
                             historizing);
    }

    bool namedVariable(const QByteArray& id, const UA_NodeId& parent, const QByteArray& browseName,
                       const QByteArray& displayName, const UA_Variant& value, const UA_NodeId& dataType,
                       UA_Byte accessLevel, UA_UInt32 reference = UA_NS0ID_ORGANIZES, bool historizing = false)
    {
        if (!ok)
            return false;
        UA_VariableAttributes attr = UA_VariableAttributes_default;
        attr.displayName = UA_LOCALIZEDTEXT(const_cast<char*>("en"), const_cast<char*>(displayName.constData()));
        attr.value = value;
        attr.dataType = dataType;
        UA_UInt32 dimension = 0;
        if (UA_Variant_isScalar(&value)) {
            attr.valueRank = UA_VALUERANK_SCALAR;
        } else {
            attr.valueRank = UA_VALUERANK_ONE_DIMENSION;
            attr.arrayDimensionsSize = 1;
            attr.arrayDimensions = &dimension;
        }
        attr.accessLevel = accessLevel;
        attr.userAccessLevel = accessLevel;
        attr.historizing = historizing;
        const bool property = reference == UA_NS0ID_HASPROPERTY;
        return check(UA_Server_addVariableNode(
                         server, simNode(id), parent, UA_NODEID_NUMERIC(0, reference),
                         UA_QUALIFIEDNAME(1, const_cast<char*>(browseName.constData())),
                         UA_NODEID_NUMERIC(0, property ? UA_NS0ID_PROPERTYTYPE : UA_NS0ID_BASEDATAVARIABLETYPE), attr,
                         nullptr, nullptr),
                     id);
    }

    bool int32Variable(const QByteArray& id, const UA_NodeId& parent, UA_Int32 number, UA_Byte accessLevel)
    {
        UA_Variant value;
        UA_Variant_setScalar(&value, &number, &UA_TYPES[UA_TYPES_INT32]);
        return variable(id, parent, value, UA_TYPES[UA_TYPES_INT32].typeId, accessLevel);
    }

    // One more hierarchical reference to a node that exists already.
    bool addReference(const QByteArray& from, UA_UInt32 referenceType, const QByteArray& to)
    {
        if (!ok)
            return false;
        return check(UA_Server_addReference(server, simNode(from), UA_NODEID_NUMERIC(0, referenceType),
                                            UA_EXPANDEDNODEID_STRING(1, const_cast<char*>(to.constData())), true),
                     from + " -> " + to);
    }
};

UA_DateTime sampleDateTime()
{
    // 2024-01-02T03:04:05.678Z
    return UA_DateTime_fromUnixTime(1704164645) + 678 * UA_DATETIME_MSEC;
}

UA_Guid sampleGuid(UA_Byte last)
{
    UA_Guid guid;
    guid.data1 = 0x6f1c2d3e;
    guid.data2 = 0;
    guid.data3 = 0x4000;
    const UA_Byte data4[8] = {0x80, 0, 0, 0, 0, 0, 0, last};
    memcpy(guid.data4, data4, sizeof data4);
    return guid;
}

struct TypeSample
{
    const char* name;
    int typeIndex;
    Ua::VariantHolder scalar;
    Ua::VariantHolder array;
};

template <typename T>
void setSample(TypeSample* sample, const T& scalar, std::initializer_list<T> array)
{
    const UA_DataType* type = &UA_TYPES[sample->typeIndex];
    UA_Variant_setScalarCopy(sample->scalar.get(), &scalar, type);
    UA_Variant_setArrayCopy(sample->array.get(), array.begin(), array.size(), type);
}

UA_ByteString byteString(std::initializer_list<UA_Byte> bytes)
{
    UA_ByteString out = UA_BYTESTRING_NULL;
    if (bytes.size() > 0 && UA_ByteString_allocBuffer(&out, bytes.size()) == UA_STATUSCODE_GOOD)
        memcpy(out.data, bytes.begin(), bytes.size());
    return out;
}

// The sixteen supported built-in types with the values the README documents.
std::vector<TypeSample> typeSamples()
{
    std::vector<TypeSample> samples;
    auto add = [&samples](const char* name, int typeIndex) -> TypeSample* {
        samples.push_back(TypeSample{name, typeIndex, {}, {}});
        return &samples.back();
    };
    samples.reserve(16);
    setSample<UA_Boolean>(add("Boolean", UA_TYPES_BOOLEAN), true, {true, false, true});
    setSample<UA_SByte>(add("SByte", UA_TYPES_SBYTE), -8, {-1, 0, 1});
    setSample<UA_Byte>(add("Byte", UA_TYPES_BYTE), 200, {1, 2, 3});
    setSample<UA_Int16>(add("Int16", UA_TYPES_INT16), -1234, {-1, 0, 1});
    setSample<UA_UInt16>(add("UInt16", UA_TYPES_UINT16), 54321, {1, 2, 3});
    setSample<UA_Int32>(add("Int32", UA_TYPES_INT32), -123456, {-1, 0, 1});
    setSample<UA_UInt32>(add("UInt32", UA_TYPES_UINT32), 3000000000u, {1, 2, 3});
    setSample<UA_Int64>(add("Int64", UA_TYPES_INT64), -9000000000LL, {-1, 0, 1});
    setSample<UA_UInt64>(add("UInt64", UA_TYPES_UINT64), 18000000000000000000ULL, {1, 2, 3});
    setSample<UA_Float>(add("Float", UA_TYPES_FLOAT), 3.5f, {1.5f, 2.5f, 3.5f});
    setSample<UA_Double>(add("Double", UA_TYPES_DOUBLE), 3.14159, {1.5, 2.5, 3.5});
    setSample<UA_String>(add("String", UA_TYPES_STRING), UA_STRING(const_cast<char*>("Hello OPC UA")),
                         {UA_STRING(const_cast<char*>("a")), UA_STRING(const_cast<char*>("b")),
                          UA_STRING(const_cast<char*>("c"))});
    const UA_DateTime day = UA_DateTime_fromUnixTime(1704067200); // 2024-01-01T00:00:00Z
    setSample<UA_DateTime>(add("DateTime", UA_TYPES_DATETIME), sampleDateTime(),
                           {day, day + 86400 * UA_DATETIME_SEC, day + 2 * 86400 * UA_DATETIME_SEC});
    setSample<UA_Guid>(add("Guid", UA_TYPES_GUID), sampleGuid(1), {sampleGuid(1), sampleGuid(2), sampleGuid(3)});
    {
        Ua::ByteStringHolder scalar = Ua::ByteStringHolder(byteString({0x01, 0x02, 0xab, 0xff}));
        Ua::ByteStringHolder a = Ua::ByteStringHolder(byteString({0x01}));
        Ua::ByteStringHolder b = Ua::ByteStringHolder(byteString({0x02, 0x03}));
        Ua::ByteStringHolder c = Ua::ByteStringHolder(byteString({0x04, 0x05, 0x06}));
        setSample<UA_ByteString>(add("ByteString", UA_TYPES_BYTESTRING), *scalar, {*a, *b, *c});
    }
    auto text = [](const char* t) { return UA_LOCALIZEDTEXT(const_cast<char*>("en"), const_cast<char*>(t)); };
    setSample<UA_LocalizedText>(add("LocalizedText", UA_TYPES_LOCALIZEDTEXT), text("Hello"),
                                {text("a"), text("b"), text("c")});
    return samples;
}

void addTypeVariables(Builder* b, const QByteArray& folder, UA_Byte accessLevel)
{
    b->object(folder, UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_NodeId parent = simNode(folder);
    for (const TypeSample& sample : typeSamples()) {
        const UA_NodeId dataType = UA_TYPES[sample.typeIndex].typeId;
        b->variable(folder + "." + sample.name, parent, *sample.scalar, dataType, accessLevel);
        b->variable(folder + "." + sample.name + "Array", parent, *sample.array, dataType, accessLevel);
    }
}

void addTypes(Builder* b)
{
    addTypeVariables(b, "Types", readAccess);
    UA_DateTime time = sampleDateTime();
    UA_Variant value;
    UA_Variant_setScalar(&value, &time, &UA_TYPES[UA_TYPES_UTCTIME]);
    b->variable("Types.UtcTime", simNode("Types"), value, UA_NODEID_NUMERIC(0, UA_NS0ID_UTCTIME), readAccess);
}

void addUnsupported(Builder* b)
{
    b->object("Unsupported", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_NodeId parent = simNode("Unsupported");
    UA_Variant value;

    UA_ServerState state = UA_SERVERSTATE_RUNNING;
    UA_Variant_setScalar(&value, &state, &UA_TYPES[UA_TYPES_SERVERSTATE]);
    b->variable("Unsupported.Enum", parent, value, UA_TYPES[UA_TYPES_SERVERSTATE].typeId, readAccess);

    UA_BuildInfo info;
    UA_BuildInfo_init(&info);
    info.productName = UA_STRING(const_cast<char*>("opcua_sim"));
    UA_Variant_setScalar(&value, &info, &UA_TYPES[UA_TYPES_BUILDINFO]);
    b->variable("Unsupported.Structure", parent, value, UA_TYPES[UA_TYPES_BUILDINFO].typeId, readAccess);

    UA_Range range;
    range.low = 0;
    range.high = 100;
    UA_Variant_setScalar(&value, &range, &UA_TYPES[UA_TYPES_RANGE]);
    b->variable("Unsupported.Range", parent, value, UA_TYPES[UA_TYPES_RANGE].typeId, readAccess);

    UA_NodeId objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    UA_Variant_setScalar(&value, &objects, &UA_TYPES[UA_TYPES_NODEID]);
    b->variable("Unsupported.NodeId", parent, value, UA_TYPES[UA_TYPES_NODEID].typeId, readAccess);
}

// Many variables of a few data types that are not built-in: each needs its supertypes browsed.
void addDerived(Builder* b, int count)
{
    b->object("Derived", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_NodeId parent = simNode("Derived");
    UA_DateTime time = sampleDateTime();
    UA_Double duration = 250.0;
    UA_ServerState state = UA_SERVERSTATE_RUNNING;
    UA_BuildInfo info;
    UA_BuildInfo_init(&info);
    UA_Range range;
    range.low = 0;
    range.high = 100;
    const struct
    {
        const char* name;
        void* value;
        int valueType;
        UA_UInt32 dataType;
    } kinds[] = {{"UtcTime", &time, UA_TYPES_DATETIME, UA_NS0ID_UTCTIME},
                 {"Duration", &duration, UA_TYPES_DOUBLE, UA_NS0ID_DURATION},
                 {"Enum", &state, UA_TYPES_SERVERSTATE, UA_NS0ID_SERVERSTATE},
                 {"Structure", &info, UA_TYPES_BUILDINFO, UA_NS0ID_BUILDINFO},
                 {"Range", &range, UA_TYPES_RANGE, UA_NS0ID_RANGE}};
    for (int i = 0; i < count; ++i) {
        for (const auto& kind : kinds) {
            UA_Variant value;
            UA_Variant_setScalar(&value, kind.value, &UA_TYPES[kind.valueType]);
            b->variable(QByteArray("Derived.") + kind.name + QByteArray::number(i), parent, value,
                        UA_NODEID_NUMERIC(0, kind.dataType), readAccess);
        }
    }
}

void addAccess(Builder* b)
{
    b->object("Access", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_NodeId parent = simNode("Access");
    b->int32Variable("Access.None", parent, 42, 0);
    b->int32Variable("Access.Read", parent, 42, UA_ACCESSLEVELMASK_READ);
    b->int32Variable("Access.Write", parent, 42, UA_ACCESSLEVELMASK_WRITE);
    b->int32Variable("Access.ReadWrite", parent, 42, readWriteAccess);
    b->int32Variable(accessLevelReadFailsId(), parent, 42, readWriteAccess);
    UA_Guid guid = sampleGuid(1);
    UA_Variant value;
    UA_Variant_setScalar(&value, &guid, &UA_TYPES[UA_TYPES_GUID]);
    b->variable("Access.GuidWrite", parent, value, UA_TYPES[UA_TYPES_GUID].typeId, UA_ACCESSLEVELMASK_WRITE);
}

void addAlias(Builder* b)
{
    b->object("Alias", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    b->object("Alias.B", simNode("Alias"));
    UA_Int32 number = 7;
    UA_Variant value;
    UA_Variant_setScalar(&value, &number, &UA_TYPES[UA_TYPES_INT32]);
    b->variable("Alias.X", simNode("Alias"), value, UA_TYPES[UA_TYPES_INT32].typeId, readAccess,
                UA_NS0ID_HASCOMPONENT);
    b->addReference("Alias.B", UA_NS0ID_ORGANIZES, "Alias.X");
}

void addProperties(Builder* b)
{
    b->object("Props", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    UA_Double temperature = 21.5;
    UA_Variant value;
    UA_Variant_setScalar(&value, &temperature, &UA_TYPES[UA_TYPES_DOUBLE]);
    b->variable("Props.Temperature", simNode("Props"), value, UA_TYPES[UA_TYPES_DOUBLE].typeId, readAccess);
    UA_String unit = UA_STRING(const_cast<char*>("degC"));
    UA_Variant_setScalar(&value, &unit, &UA_TYPES[UA_TYPES_STRING]);
    b->variable("Props.Temperature.Unit", simNode("Props.Temperature"), value, UA_TYPES[UA_TYPES_STRING].typeId,
                readAccess, UA_NS0ID_HASPROPERTY);
    UA_Int32 precision = 2;
    UA_Variant_setScalar(&value, &precision, &UA_TYPES[UA_TYPES_INT32]);
    b->variable("Props.Temperature.Precision", simNode("Props.Temperature"), value, UA_TYPES[UA_TYPES_INT32].typeId,
                readAccess, UA_NS0ID_HASPROPERTY);
}

void addDeep(Builder* b, int levels)
{
    b->object("Deep", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    QByteArray parent = "Deep";
    for (int level = 1; level <= levels && b->ok; ++level) {
        const QByteArray id = "Deep.L" + QByteArray::number(level);
        b->object(id, simNode(parent));
        parent = id;
    }
    b->int32Variable("Deep.Leaf", simNode(parent), levels, readAccess);
}

void addMany(Builder* b, int count)
{
    b->object("Many", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_NodeId parent = simNode("Many");
    for (int i = 0; i < count && b->ok; ++i)
        b->int32Variable("Many.V" + QByteArray::number(i), parent, i, readAccess);
}

void addEmpty(Builder* b)
{
    b->object("Empty", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    b->object("Empty.A", simNode("Empty"), false);
    b->object("Empty.B", simNode("Empty"), false);
}

// Names as real servers have them: beyond ASCII (also beyond the 16-bit plane), differing
// only in case, with blanks, quotes and control characters, segments the browse path drops,
// and variables and folders reached on several paths.
void addNames(Builder* b)
{
    const UA_NodeId objects = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    b->object("Names", objects);
    const UA_NodeId names = simNode("Names");
    UA_Int32 number = 5;
    UA_Variant scalar;
    UA_Variant_setScalar(&scalar, &number, &UA_TYPES[UA_TYPES_INT32]);
    UA_Int32 numbers[2] = {1, 2};
    UA_Variant array;
    UA_Variant_setArray(&array, numbers, 2, &UA_TYPES[UA_TYPES_INT32]);
    const UA_NodeId int32 = UA_TYPES[UA_TYPES_INT32].typeId;
    const auto named = [&](const QByteArray& id, const UA_NodeId& parent, const QByteArray& browseName,
                           const QByteArray& displayName, UA_Byte access = readAccess) {
        return b->namedVariable(id, parent, browseName, displayName, scalar, int32, access);
    };

    // Beyond ASCII. U+FF21 and U+1F525 sort one way as UTF-16 and the other way as UTF-8.
    named("Names.K\xc3\xbchlwasser", names, "K\xc3\xbchlwasser", "K\xc3\xbchlwasser");
    named("Names.\xe6\xb8\xa9\xe5\xba\xa6", names, "\xe6\xb8\xa9\xe5\xba\xa6", "\xe6\xb8\xa9\xe5\xba\xa6");
    named("Names.\xf0\x9f\x94\xa5", names, "\xf0\x9f\x94\xa5 Feuer", "\xf0\x9f\x94\xa5");
    named("Names.\xef\xbc\xa1", names, "\xef\xbc\xa1", "\xef\xbc\xa1");
    named("Names.\xc3\x84", names, "\xc3\x84", "\xc3\x84");
    named("Names.\xc3\xa4", names, "\xc3\xa4", "\xc3\xa4", readWriteAccess);
    named("Names.b", names, "b", "b");
    // Identifiers that differ only in case.
    b->object("Names.Case", names);
    b->object("Names.case", names);
    named("Names.Case.x", simNode("Names.Case"), "x", "x");
    named("Names.Case.X", simNode("Names.Case"), "X", "X", readWriteAccess);
    named("Names.case.x", simNode("Names.case"), "x", "x");
    // Texts that JSON escapes, blanks the path trims, a dot inside a name.
    named("Names.Quote", names, "say \"hi\" \\ there", "Quote");
    named("Names.Tab", names, "tab\there", "Tab");
    named("Names.Control", names, "bell\x01\x7f", "Control");
    named("Names.Padded", names, "  Padded\t", "Padded");
    named("Names.Dotted", names, "a.b", "Dotted");
    // A folder whose name is blank drops out of the path of its children.
    b->namedObject("Names.Blank", names, "   ", "Blank");
    named("Names.Blank.V", simNode("Names.Blank"), "V", "V");
    // Right below Objects, a leading "Objects" or "Root" drops out of the path: a variable
    // named so is listed by its display name, or by its browse name without one.
    b->namedObject("NamesObjects", objects, "Objects", "Objects");
    named("NamesObjects.V", simNode("NamesObjects"), "V", "V");
    named("NamesRoot", objects, "Root", "Root display");
    named("NamesRootBare", objects, "ROOT", "");

    // One variable (an array) on many paths: deeper, shallower, equally deep and longer, the
    // same path twice, and a path already named in its description.
    b->object("Names.Q", names);
    b->object("Names.Q.R", simNode("Names.Q"));
    b->object("Names.P", names);
    b->namedObject("Names.Longer", names, "Longer", "Longer");
    b->namedVariable("Names.Shared", names, "Shared", "Shared", array, int32, readAccess, UA_NS0ID_HASCOMPONENT);
    b->addReference("Names.Q.R", UA_NS0ID_ORGANIZES, "Names.Shared");
    b->addReference("Names.Q", UA_NS0ID_ORGANIZES, "Names.Shared");
    b->addReference("Names.Q", UA_NS0ID_HASCOMPONENT, "Names.Shared");
    b->addReference("Names.P", UA_NS0ID_ORGANIZES, "Names.Shared");
    b->addReference("Names.Longer", UA_NS0ID_ORGANIZES, "Names.Shared");
    // Two paths beyond ASCII of equal depth: "K\u00fchlung" is the longer in characters (7 to
    // 3), "\u6e29\u5ea6\u8ba1" in UTF-8 bytes (9 to 8).
    b->namedObject("Names.K\xc3\xbchlung", names, "K\xc3\xbchlung", "K\xc3\xbchlung");
    b->namedObject("Names.\xe6\xb8\xa9\xe5\xba\xa6\xe8\xae\xa1", names, "\xe6\xb8\xa9\xe5\xba\xa6\xe8\xae\xa1",
                   "\xe6\xb8\xa9\xe5\xba\xa6\xe8\xae\xa1");
    named("Names.Geteilt", simNode("Names.K\xc3\xbchlung"), "Geteilt", "Geteilt");
    b->addReference("Names.\xe6\xb8\xa9\xe5\xba\xa6\xe8\xae\xa1", UA_NS0ID_ORGANIZES, "Names.Geteilt");
    // A folder reached twice before it is browsed: its children take its better path.
    b->object("Names.D", names);
    b->addReference("Names.Q", UA_NS0ID_ORGANIZES, "Names.D");
    b->addReference("Names.Q.R", UA_NS0ID_ORGANIZES, "Names.D");
    named("Names.D.V", simNode("Names.D"), "V", "V");
}

void addSynthetic(Builder* b, int count, int folderSize)
{
    b->object("Synthetic", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    QByteArray folder;
    for (int k = 0; k < count && b->ok; ++k) {
        if (k % folderSize == 0) {
            folder = "Synthetic.F" + QByteArray::number(k / folderSize);
            b->object(folder, simNode("Synthetic"));
        }
        b->int32Variable("Synthetic.V" + QByteArray::number(k), simNode(folder), k, readAccess);
    }
}

struct HistoryPoint
{
    double value;
    int minutesAgo;
    bool sourceTimestamp;
};

void addHistoryVariable(Builder* b, const QByteArray& id, double current, const std::vector<HistoryPoint>& points,
                        UA_DateTime startTime)
{
    UA_Variant value;
    UA_Variant_setScalar(&value, &current, &UA_TYPES[UA_TYPES_DOUBLE]);
    if (!b->variable(id, simNode("History"), value, UA_TYPES[UA_TYPES_DOUBLE].typeId,
                     UA_ACCESSLEVELMASK_READ | UA_ACCESSLEVELMASK_HISTORYREAD, UA_NS0ID_ORGANIZES, true))
        return;
    if (!historyConfigured) {
        *b->error = QStringLiteral("the history database is not configured");
        b->ok = false;
        return;
    }
    UA_HistorizingNodeIdSettings setting;
    memset(&setting, 0, sizeof setting);
    setting.historizingBackend = UA_HistoryDataBackend_Memory(1, 100);
    setting.maxHistoryDataResponseSize = 100;
    setting.historizingUpdateStrategy = UA_HISTORIZINGUPDATESTRATEGY_USER;
    const UA_NodeId nodeId = simNode(id);
    historyBackends.push_back(setting.historizingBackend);
    if (!b->check(historyGathering.registerNodeId(b->server, historyGathering.context, &nodeId, setting), id))
        return;
    for (const HistoryPoint& point : points) {
        UA_DataValue data;
        UA_DataValue_init(&data);
        UA_Variant_setScalar(&data.value, const_cast<double*>(&point.value), &UA_TYPES[UA_TYPES_DOUBLE]);
        data.hasValue = true;
        const UA_DateTime time = startTime - point.minutesAgo * 60 * UA_DATETIME_SEC;
        data.serverTimestamp = time;
        data.hasServerTimestamp = true;
        data.sourceTimestamp = time;
        data.hasSourceTimestamp = point.sourceTimestamp;
        if (!b->check(setting.historizingBackend.serverSetHistoryData(b->server, setting.historizingBackend.context,
                                                                     nullptr, nullptr, &nodeId, false, &data),
                      id))
            return;
    }
}

void addHistory(Builder* b)
{
    b->object("History", UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER));
    const UA_DateTime start = UA_DateTime_now();
    addHistoryVariable(b, "History.Value", 50.0,
                       {{10.0, 50, true}, {20.0, 40, false}, {30.0, 30, true}, {40.0, 20, false}, {50.0, 10, true}},
                       start);
    std::vector<HistoryPoint> points;
    for (int i = 0; i < 25; ++i)
        points.push_back({static_cast<double>(i), 25 - i, true});
    addHistoryVariable(b, "History.Long", 24.0, points, start);
}

// Unhooks Server, Aliases, Locations and any other namespace-0 child from the Objects folder.
void hideStandardObjects(Builder* b)
{
    UA_BrowseDescription description;
    UA_BrowseDescription_init(&description);
    description.nodeId = UA_NODEID_NUMERIC(0, UA_NS0ID_OBJECTSFOLDER);
    description.browseDirection = UA_BROWSEDIRECTION_FORWARD;
    description.referenceTypeId = UA_NODEID_NUMERIC(0, UA_NS0ID_HIERARCHICALREFERENCES);
    description.includeSubtypes = true;
    description.resultMask = UA_BROWSERESULTMASK_REFERENCETYPEID;
    Ua::BrowseResultHolder result = Ua::BrowseResultHolder(UA_Server_browse(b->server, 0, &description));
    if (!b->check(result->statusCode, "Objects"))
        return;
    for (size_t i = 0; i < result->referencesSize; ++i) {
        const UA_ReferenceDescription& reference = result->references[i];
        if (reference.nodeId.nodeId.namespaceIndex != 0)
            continue;
        b->check(UA_Server_deleteReference(b->server, description.nodeId, reference.referenceTypeId, true,
                                           reference.nodeId, true),
                 "Objects -> standard object");
    }
}

} // namespace

void configureHistory(UA_ServerConfig* config)
{
    historyGathering = UA_HistoryDataGathering_Default(4);
    config->historyDatabase = UA_HistoryDatabase_default(historyGathering);
    historyConfigured = true;
}

void releaseHistory()
{
    for (UA_HistoryDataBackend& backend : historyBackends)
        UA_HistoryDataBackend_Memory_clear(&backend);
    historyBackends.clear();
}

bool buildAddressSpace(UA_Server* server, const Scenario& scenario, QString* error)
{
    Builder builder{server, error};
    const AddressSpaceSettings& space = scenario.addressSpace;
    const std::vector<std::pair<const char*, std::function<void()>>> presets = {
        {"types", [&] { addTypes(&builder); }},
        {"writable", [&] { addTypeVariables(&builder, "Writable", readWriteAccess); }},
        {"unsupported", [&] { addUnsupported(&builder); }},
        {"access", [&] { addAccess(&builder); }},
        {"alias", [&] { addAlias(&builder); }},
        {"properties", [&] { addProperties(&builder); }},
        {"deep", [&] { addDeep(&builder, space.deepLevels); }},
        {"many", [&] { addMany(&builder, space.manyChildren); }},
        {"derived", [&] { addDerived(&builder, space.derivedChildren); }},
        {"history", [&] { addHistory(&builder); }},
        {"empty", [&] { addEmpty(&builder); }},
        {"names", [&] { addNames(&builder); }},
    };
    for (const auto& preset : presets) {
        if (hasPreset(scenario, QString::fromLatin1(preset.first)))
            preset.second();
    }
    if (space.syntheticCount > 0)
        addSynthetic(&builder, space.syntheticCount, space.syntheticFolderSize);
    if (builder.ok && space.hideServerObject)
        hideStandardObjects(&builder);
    return builder.ok;
}

} // namespace opcua_sim

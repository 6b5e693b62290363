#pragma once

#include <QMap>
#include <QString>

#include <optional>

// The security a device is reached with: OPC UA's message security mode and security policy, as
// the standard numbers and names them and as the gateway keeps them in a device's settings.

// The message security modes, with the standard's numbers (0, "invalid", names no mode).
enum class SecurityMode { None = 1, Sign = 2, SignAndEncrypt = 3 };

// The mode a number stands for, or nothing for a number that names no mode.
std::optional<SecurityMode> securityModeFromNumber(int number);
// The mode a number is shown and imported as: a number that names no mode counts as None.
SecurityMode securityModeOrNone(int number);
int securityModeNumber(SecurityMode mode);
// "None", "Sign" or "Sign & Encrypt".
QString securityModeText(SecurityMode mode);

// The policy that secures nothing.
constexpr char kSecurityPolicyNoneUri[] = "http://opcfoundation.org/UA/SecurityPolicy#None";

// A device's security settings as the gateway stores them: "security_mode" a decimal number
// (0 when the text is not one), "security_policies" the full policy URI.
struct DeviceSecurity
{
    int mode = 0;
    QString policyUri;
};

DeviceSecurity deviceSecurity(const QMap<QString, QString>& settings);

#include "common/security_settings.h"

std::optional<SecurityMode> securityModeFromNumber(int number)
{
    switch (number) {
    case 1:
        return SecurityMode::None;
    case 2:
        return SecurityMode::Sign;
    case 3:
        return SecurityMode::SignAndEncrypt;
    default:
        return std::nullopt;
    }
}

SecurityMode securityModeOrNone(int number)
{
    return securityModeFromNumber(number).value_or(SecurityMode::None);
}

int securityModeNumber(SecurityMode mode)
{
    return static_cast<int>(mode);
}

QString securityModeText(SecurityMode mode)
{
    switch (mode) {
    case SecurityMode::Sign:
        return QStringLiteral("Sign");
    case SecurityMode::SignAndEncrypt:
        return QStringLiteral("Sign & Encrypt");
    case SecurityMode::None:
        break;
    }
    return QStringLiteral("None");
}

DeviceSecurity deviceSecurity(const QMap<QString, QString>& settings)
{
    DeviceSecurity security;
    security.mode = settings.value(QStringLiteral("security_mode")).toInt(nullptr, 10);
    security.policyUri = settings.value(QStringLiteral("security_policies"));
    return security;
}

#pragma once

// Plain text without the stack, so that code which must not link open62541 can use it too.
namespace Ua {

constexpr const char securityPolicyNoneUri[] = "http://opcfoundation.org/UA/SecurityPolicy#None";

} // namespace Ua

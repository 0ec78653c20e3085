#pragma once

namespace Velmora {

/// Sets for the connections of a TLS context (an `SSL_CTX`):
/// - An answer that came before a connection broke stays readable. A write to a broken connection waits instead of
///   failing, so that what has arrived is read first; reading then finds the end of the connection. A server that
///   refuses a body and closes at once would otherwise be seen as a connection that broke while it was sent to.
/// - No secret of a connection is written to the file that the environment may name for that.
void adjustTlsContext(void *context);

} // namespace Velmora

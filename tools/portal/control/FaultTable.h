#pragma once

#include "portal/control/Fault.h"
#include "portal/http/Http.h"
#include "portal/json/Json.h"

namespace VelmoraPortal {

/// The moments at which a fault can be injected, as bits.
enum FaultMoment : unsigned {
    OnConnection = 1, ///< after the TLS handshake, or when the head of a further request arrives; of any path
    OnRequest = 2,
    OnHandshake = 4, ///< of a socket
    OnSocket = 8,    ///< a socket was accepted
};

/// The properties of a kind. FaultEffect.cpp holds the code of its effect.
struct FaultRow {
    FaultKind kind;
    const char *name; ///< in the control interface
    unsigned moments;
    bool processed;        ///< false: the service does not see the request
    Answer::Ending ending; ///< of the answer
    const char *fields;    ///< of `Fault`, those that the kind uses
    const char *effect;    ///< for the help text
};
const FaultRow &rowOf(FaultKind kind);

/// Throws a refusal that names the bad field.
Fault faultOf(const Json &object);
Json toJson(const Fault &fault);

/// A line for every kind, for the help text.
std::string faultHelp();

} // namespace VelmoraPortal

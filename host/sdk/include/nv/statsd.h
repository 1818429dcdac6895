#pragma once

#include <string>

/// What became of one datagram. Sending never blocks and its failures need no handling.
struct StatsdResult {
    bool sent = false;
};

/// The host's metrics. Texts may hold anything: the client makes them fit for the wire.
class IStatsdClient {
  public:
    virtual ~IStatsdClient() = default;
    /// The tagged count: one occurrence of NAMESPACE.NAME about `tag`, empty for none. For a
    /// namespace that the host lists as one of durations, `tag` is decimal milliseconds and `name`
    /// what they were spent on.
    virtual StatsdResult Count(const std::string& nameSpace, const std::string& name,
                               const std::string& tag) = 0;
    /// The plain count. @param value  how much to add. @param sampleRate  0 for unsampled
    virtual StatsdResult Count(const std::string& nameSpace, const std::string& name, int value,
                               int sampleRate) = 0;
};

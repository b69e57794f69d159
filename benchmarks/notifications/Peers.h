#pragma once
// Channels of the peers, each with the same four operations: add a listener that counts, post, the number of listeners' counts,
// and remove all. Toolkits' headers stay apart from ours, since their macros are not.
#include <cstddef>
#include <memory>
#include <string>

namespace Tessarin::benchmarks {

class Channel {
public:
    virtual ~Channel() = default;
    virtual void add(long& heard) = 0;
    virtual void post() = 0;
};

using ChannelMaker = std::unique_ptr<Channel> (*)();

/// Null where the peer was not installed at build time.
std::unique_ptr<Channel> makeBoostChannel();
std::unique_ptr<Channel> makeQtChannel();
std::unique_ptr<Channel> makeSigcChannel();
std::unique_ptr<Channel> makeGLibChannel();

} // namespace Tessarin::benchmarks

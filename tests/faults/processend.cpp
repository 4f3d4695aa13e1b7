// A host's global that filters in its destructor, while the process ends: transform plans, the log storage and a thread's
// buffers were made after it, and still have to be there. Exit status: 0 every filter gives what it gave before.
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
#include <string>
#include <vector>

#include "faults/everyfilter.h"
#include "support/expectations.h"

namespace {

using namespace Tarnwick::Testing;

struct Instrument {
    Instrument()
    {
        for (const FilterKind& kind : EveryFilter())
            channels.push_back({kind.name, kind.make(kSamplesPerUi), {}});
    }
    Instrument(const Instrument&) = delete;
    Instrument& operator=(const Instrument&) = delete;
    ~Instrument()
    {
        for (Channel& channel : channels) {
            try {
                channel.rig->Parameters().SetDirty();
                if (HaveSameBits(channel.rig->Apply(channel.rig->first), channel.before))
                    continue;
                (void)std::fprintf(stderr, "%s: other values at the end of the process\n", channel.name.c_str());
            } catch (const std::exception& error) {
                (void)std::fprintf(stderr, "%s: %s\n", channel.name.c_str(), error.what());
            }
            std::_Exit(EXIT_FAILURE);
        }
    }

    struct Channel {
        std::string name;
        std::unique_ptr<Rig> rig;
        std::vector<double> before;
    };
    std::vector<Channel> channels;
};

Instrument instrument;

}  // namespace

int main()
{
    for (auto& channel : instrument.channels)
        channel.before = channel.rig->Apply(channel.rig->first);
}

#include "situations.h"

#include <algorithm>

namespace {

// Loads are in per cent of one processor and a thread. The machine is taken to have two processors: what needs them all
// to be taken starts six busy programs, enough for four.
const std::vector<Situation> kSituations = {
    // --- on time
    {"idle", "hardly anything to do", "rate=10..30 load=0.5..1", ""},
    {"light", "a light load", "rate=80..160 load=4..8", ""},
    {"two-busy", "two threads, busy but on time", "threads=2 rate=80..160 load=50..57", ""},
    {"one-busy", "one thread, busier, but on time", "rate=150..300 load=72..80", ""},
    {"many-threads", "24 threads with little to do each", "threads=24 rate=8..12 load=2..3", ""},
    {"pool-spread", "a pool of 200 threads, spread evenly", "threads=200 rate=4..6 load=0.2..0.3", ""},
    {"ten-engines", "10 engines with four threads each", "threads=4 rate=10..20 load=1..2", "engines=10"},
    {"fifty-engines", "50 engines with two threads each", "threads=2 rate=4..6 load=0.4..0.8", "engines=50"},
    {"share-of-two", "20 engines that share the processors", "rate=8..12 load=6.5..8", "engines=20"},
    {"nice-hogs", "beside two busy programs of low priority", "rate=80..160 load=8..12", "hogs=2 nice=19"},
    {"light-beside-hogs", "a light load beside two busy programs", "rate=80..160 load=4..8", "hogs=2"},
    {"quota-ample", "a processor quota that is enough", "rate=80..160 load=20..30", "quota=70..90"},
    {"log-on-disk", "each request writes to its log's disk", "rate=40..80 load=2..4 log=disk bytes=4096", ""},
    {"compiler-thread", "a just-in-time compiler is busy in the engine",
     "rate=80..160 load=4..8 helper=C2~CompilerThre", ""},
    {"busy-helper-ignored", "a thread that sends nothing is busy, and named in --ignore-thread",
     "rate=80..160 load=4..8 helper=reporter", "", "--ignore-thread reporter"},

    // --- held back by itself
    {"at-limit", "one thread asked for more than a processor", "rate=80..160 load=105..130", ""},
    {"pool-together", "a pool of 200 threads, all due at the same moment",
     "threads=200 rate=8..12 load=0.25..0.45 together=1", ""},
    {"pause-busy", "the program pauses, busy with something else",
     "rate=80..160 load=4..8 pause=0.4..0.8 every=3 pause-by=spin", ""},

    // --- held back by others
    {"equal-hogs", "beside six busy programs", "rate=80..160 load=45..60", "hogs=6"},
    {"hog-on-its-processor", "its only processor is shared with a busy program", "rate=80..160 load=60..75 cpu=0",
     "hogs=1 hog-cpu=0"},
    {"low-priority", "an engine of low priority beside busy programs", "rate=80..160 load=20..30 nice=19", "hogs=4"},
    {"hogs-shortly", "six busy programs for a moment", "rate=80..160 load=30..40", "hogs=6 from=1.0..2.0 for=1.0..2.0"},
    {"pinned-hogs-shortly", "two busy programs on its only processor, for a moment", "rate=80..160 load=45..55 cpu=0",
     "hogs=2 hog-cpu=0 from=1.0..2.0 for=1.0..2.0"},

    // --- held back by decree
    {"quota-tight", "a processor quota that is too small", "rate=80..160 load=28..35", "quota=15..20"},
    {"quota-shortly", "a processor quota that is too small for a moment", "rate=80..160 load=28..35",
     "quota=8..12 from=1.0..2.0 for=1.0..2.0"},
    {"stopped", "stopped for a second or two", "rate=80..160 load=4..8", "stop=1 from=1.0..2.0 for=1.0..2.0"},
    {"stopped-shortly", "stopped for less than half a second", "rate=80..160 load=4..8",
     "stop=1 from=1.0..3.0 for=0.25..0.45"},
    {"frozen", "its group of processes is frozen for a second", "rate=80..160 load=4..8",
     "freeze=1 from=1.0..2.0 for=0.8..1.5"},

    // --- waiting for what is not a processor
    {"slow-disk", "each request writes to a log on a slow disk", "rate=40..80 load=2..4 log=disk bytes=4096",
     "disk=60..120"},
    {"slow-disk-shortly", "its log's disk is slow for a moment", "rate=40..80 load=2..4 log=disk bytes=4096",
     "disk=30..60 from=1.0..2.0 for=1.0..2.0"},
    {"memory-limit", "its memory limit keeps it re-reading its files", "rate=40..80 load=2..4 file=disk pages=4",
     "memory=24 disk=200..400"},
    {"descriptors", "no descriptors are left", "rate=40..60 load=2..4 hold=2 descriptors=50", ""},
    {"ports", "no local ports are left", "rate=300..400 load=4..8 hold=2", "ports=400"},

    // --- gone
    {"no-engine", "there is no engine", "", ""},
    {"dies", "the engine dies", "rate=80..160 load=4..8 die=1.0..3.0", ""},
    {"out-of-memory", "killed at its memory limit", "rate=80..160 load=4..8 grow=20", "memory=48..64"},

    // --- seen, but not how many requests it is about
    {"quota-bursts", "a processor quota that is enough on average, not for its bursts",
     "rate=40..60 batch=20 load=12..15", "quota=18..22", "", Sight::Uneven},
    {"own-bursts", "bursts that take one thread longer than the tolerance", "rate=40..60 batch=20 load=8..12", "", "",
     Sight::Uneven},
    {"one-slow-thread", "one of four threads is asked for more than a processor",
     "threads=4 rate=40..80 load=4..8 slow-threads=1 load-of-slow=105..130", "", "", Sight::Uneven},

    // --- not seen, or seen and nothing bad
    {"pause-asleep", "the program pauses, asleep", "rate=80..160 load=4..8 pause=0.4..0.8 every=3 pause-by=sleep", "",
     "", Sight::Hidden},
    {"pause-collector", "the program waits for its garbage collector",
     "rate=80..160 load=4..8 pause=0.4..0.8 every=3 pause-by=collector", "", "", Sight::Hidden},
    {"busy-helper", "a thread that sends nothing is busy", "rate=80..160 load=4..8 helper=reporter", "", "",
     Sight::Hidden},
    {"ports-elsewhere", "no local ports are left in the engine's own network",
     "rate=300..400 load=4..8 hold=2 own-ports=400", "", "", Sight::Hidden},

    // --- other load generators: below and above what they can do, and held back
    {"hey", "hey", "generator=hey rate=100..300 connections=4 settle=1", "", "--engine hey", Sight::Others},
    {"hey-quota", "hey in a quota that is too small", "generator=hey rate=200..300 connections=4 settle=1",
     "quota=2..3", "--engine hey", Sight::Others},
    {"hey-stopped", "hey, stopped for a second", "generator=hey rate=100..300 connections=4 settle=1",
     "stop=1 from=1.0..2.0 for=1.0..1.5", "--engine hey", Sight::Others},
    {"wrk", "wrk, with pauses", "generator=wrk rate=200..400 connections=10 settle=1", "", "--engine wrk",
     Sight::Others},
    {"wrk-quota", "wrk in a quota that is too small", "generator=wrk rate=1000..2000 connections=20 settle=1",
     "quota=1..2", "--engine wrk", Sight::Others},
    {"wrk-beyond", "wrk as fast as it can, with many connections",
     "generator=wrk rate=0 connections=800..1000 settle=1", "", "--engine wrk", Sight::Others},
    {"ab", "ab with one connection", "generator=ab connections=1 settle=1", "", "--engine ab", Sight::Others},
    {"ab-beyond", "ab as fast as it can, with many connections", "generator=ab connections=500..800 settle=1", "",
     "--engine ab", Sight::Others},
    {"locust", "locust", "generator=locust rate=40..80 connections=4 settle=3", "", "--engine locust", Sight::Others},
    {"locust-beyond", "locust, asked for more than it can send",
     "generator=locust rate=4000..6000 connections=20 settle=3", "", "--engine locust", Sight::Others},
    {"locust-quota", "locust in a quota that is too small", "generator=locust rate=80..120 connections=4 settle=3",
     "quota=6..9", "--engine locust", Sight::Others},
    {"java", "a Java program", "generator=java rate=80..160 connections=4 settle=6", "", "--engine java",
     Sight::Others},
    {"java-quota", "a Java program in a quota that is too small for a moment",
     "generator=java rate=80..160 connections=4 settle=6", "quota=1..2 from=0.5..1.0 for=3.0..4.0", "--engine java",
     Sight::Others},
};

}  // namespace

const std::vector<Situation>& situations() { return kSituations; }

const Situation* findSituation(const std::string& name) {
    const auto found = std::find_if(kSituations.begin(), kSituations.end(),
                                    [&](const Situation& situation) { return situation.name == name; });
    return found == kSituations.end() ? nullptr : &*found;
}

"""What docs/performance.md tells: for each claim its benchmarks, and what is compared with what."""

from dataclasses import dataclass, field


@dataclass
class Row:
    text: str
    name: str
    beside: str = ""  # without it: the figure by itself, in units
    goal: float = None
    measure: str = "real_time"
    unit: float = 1  # nanoseconds, for times
    is_quick: bool = True


@dataclass
class Claim:
    title: str
    program: str
    text: str
    rows: list = field(default_factory=list)
    plot: str = ""
    rounds: int = 9


def beside_curl(place, title, goals):
    return [Row(f"{method}, {title}, {what}", f"{place}/{method}/core", f"{place}/{method}/curl", goal,
                measure)
            for method, goal_of in goals.items()
            for what, measure, goal in (("wall", "real_time", goal_of), ("CPU", "cpu_time", None))]


CLAIMS = [
    Claim("Hits", "TransportBenchmark",
          "2,000 hits, each with another URL of 120 characters, posted on the bus and sent one after the\n"
          "other, beside a loop of libcurl's easy interface with `CURLOPT_NOSIGNAL` and the header fields\n"
          "that the core sends, so that all send the same bytes; POST has 700 bytes, which the core copies\n"
          "into the queue and which have left the near caches when their turn comes.\n"
          "Connections are open before. \"One core\" has client and server on the same one; \"free\" has\n"
          "them where the kernel puts them, so that posting and sending overlap. What can be won by that is\n"
          "the share of posting, and on both sides a hit waits twice for another processor to wake up: the\n"
          "two rows behind them tell how much that is. The last rows are those of a loop that writes\n"
          "requests into a socket and passes over the answers.",
          beside_curl("one_core", "one core", {"GET": 1.0, "POST": 1.05}) +
          beside_curl("free", "free", {"GET": 0.95, "POST": 0.95}) +
          [Row("posting hits beside having them sent, GET, free", "postWhileRunning", "free/GET/core",
               is_quick=False),
           Row("libcurl on free cores beside one core, GET", "free/GET/curl", "one_core/GET/curl"),
           Row("one hit from its post to the server, beside a worker thread with libcurl",
               "latency/core", "latency/curl", 1.15),
           Row("libcurl beside a socket, GET, one core", "one_core/GET/curl", "one_core/GET/socket"),
           Row("libcurl beside a socket, GET, free", "free/GET/curl", "free/GET/socket", is_quick=False),
           Row("the core beside a socket, GET, one core", "one_core/GET/core", "one_core/GET/socket")],
          "hits", rounds=75),
    Claim("Event bus", "NotificationBenchmark",
          "A post with one observer, among 10,000 names, beside a look-up in `std::unordered_map` and the\n"
          "call of the `std::function` that it holds; then two threads that post at once beside one, each\n"
          "with counters of its own. Rounds in which the two did not run at once are left out: the machine\n"
          "must have two free processors. Through one listener the two share a number after all: that of\n"
          "the references to the listener's owner, which must not be destroyed during a delivery.",
          [Row("the center beside a bare map", "center", "map", 3),
           Row("through sender and listener, beside a bare map", "sender", "map", 5),
           Row("two threads, two names, beside one", "center/two_threads/two_names", "center", 2),
           Row("two threads, one name, beside one", "center/two_threads/one_name", "center", 2),
           Row("the same through sender and listener, two names", "sender/two_threads/two_names",
               "sender", 2),
           Row("the same, one name", "sender/two_threads/one_name", "sender", 2)], "bus"),
    Claim("Queueing", "TransportBenchmark",
          "What a post costs the thread that posts while as many hits wait as the queue may hold, so that\n"
          "each cancels an older one, beside a queue of 10.",
          [Row(f"{count:,} waiting", f"postWhileSuspended/{count}", "postWhileSuspended/10", goal,
               is_quick=count <= 2000)
           for count, goal in ((100, 1.5), (2000, 1.5), (100000, 2), (1000000, 3))],
          "queueing"),
    Claim("Saving and restoring", "OfflineHitsBenchmark",
          "Hits of 120 characters of URL and 300 bytes of body, from the queue into the file and back,\n"
          "beside the same bytes written, flushed and renamed by system calls alone, and beside the same\n"
          "rows in SQLite. Saving is durable on both sides, the removal of what was restored on none.",
          [Row("saving 2,000 beside a plain write", "save/2000", "savePlainly/2000", 2),
           Row("saving 2,000 beside SQLite", "save/2000", "saveInSQLite", 1),
           Row("restoring 2,000 beside SQLite", "restore/2000", "restoreFromSQLite", 1)], "saves",
          rounds=25),
    Claim("A million hits", "OfflineHitsBenchmark",
          "The same with a million. What 2,000 hits need stays in the processor's caches, what a million\n"
          "need comes out of memory that the kernel has to hand over first: so a hit of many costs more\n"
          "than one of few, however it is saved and restored. The second row of each pair is the same\n"
          "growth of what there is no way around: a plain write of the bytes, and reading them and\n"
          "copying the texts out of them.",
          [Row("a hit saved, CPU in µs", "save/1000000", goal=2, measure="cpu_time", unit=1000,
               is_quick=False),
           Row("a hit of a million saved beside one of 2,000, CPU", "save/1000000", "save/2000", 2,
               "cpu_time", is_quick=False),
           Row("the same of a plain write", "savePlainly/1000000", "savePlainly/2000",
               measure="cpu_time", is_quick=False),
           Row("a hit restored, CPU in µs", "restore/1000000", goal=2, measure="cpu_time", unit=1000,
               is_quick=False),
           Row("a hit of a million restored beside one of 2,000, CPU", "restore/1000000",
               "restore/2000", 2, "cpu_time", is_quick=False),
           Row("the same of plain reading and copying", "readPlainly/1000000", "readPlainly/2000",
               measure="cpu_time", is_quick=False),
           Row("most memory while they are saved and restored, GiB", "restore/1000000",
               measure="peak", unit=1 << 20, is_quick=False)], "million"),
    Claim("In the background", "OfflineHitsBenchmark",
          "Each change of the queue saves all of it: a hit is posted, for which the oldest goes. Beside it\n"
          "the same bytes, written, flushed and renamed by system calls alone.",
          [Row(f"{count:,} waiting, {what}", f"change/{count}", f"changePlainly/{count}", 1.25, measure,
               is_quick=count <= 2000)
           for count in (2000, 20000)
           for what, measure in (("wall", "real_time"), ("CPU", "cpu_time"))], "changes", rounds=45),
    Claim("Configurations", "ConfigurationBenchmark",
          "One leaf, three keys down, out of a configuration of 500 KB, the read from the user defaults\n"
          "included, beside parsers that are handed the text; and the whole of it as values. Three shapes\n"
          "of text: much text, much white space, many numbers.",
          [Row(f"a leaf beside {other}, {shape}", f"readLeafWithCore/{number}",
               f"readLeafWith{name}/{number}", 1)
           for other, name in (("RapidJSON's DOM", "RapidJSON"), ("nlohmann's", "NlohmannJSON"))
           for number, shape in enumerate(("text", "white space", "numbers"))], "configurations"),
    Claim("Loading and starting", "StartBenchmark",
          "A process from its start to its end in which nothing but loading happens, with the core, with\n"
          "libcurl alone and with neither; and the first start of the core, in a fresh container.",
          [Row("loading the core beside libcurl", "load/Core", "load/Curl"),
           Row("loading libcurl beside nothing", "load/Curl", "load/Nothing"),
           Row("starting the core beside loading it", "start/with_web_view", "load/Core", 1),
           Row("memory of a started core, MiB", "start/with_web_view", goal=1, measure="kilobytes",
               unit=1024)], "start"),
]

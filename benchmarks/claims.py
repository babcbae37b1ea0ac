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
    scale: float = 1
    is_quick: bool = True


@dataclass
class Claim:
    title: str
    program: str
    text: str
    rows: list = field(default_factory=list)
    plot: str = ""


def beside_curl(place, title, goals):
    return [Row(f"{method}, {title}, {what}", f"{place}/{method}/core", f"{place}/{method}/curl", goal,
                measure)
            for method, goal_of in goals.items()
            for what, measure, goal in (("wall", "real_time", goal_of), ("CPU", "cpu_time", None))]


CLAIMS = [
    Claim("Hits", "TransportBenchmark",
          "2,000 hits, each with another URL of 120 characters, posted on the bus and sent one after the\n"
          "other, beside a loop of libcurl's easy interface with `CURLOPT_NOSIGNAL`; POST has 700 bytes.\n"
          "Connections are open before. \"One core\" has client and server on the same one; \"free\" has\n"
          "them where the kernel puts them, so that posting and sending overlap. The last rows are those\n"
          "of a loop that writes requests into a socket and passes over the answers.",
          beside_curl("one_core", "one core", {"GET": 1.0, "POST": 1.05}) +
          beside_curl("free", "free", {"GET": 0.95, "POST": 0.95}) +
          [Row("one hit from its post to the server, beside a worker thread with libcurl",
               "latency/core", "latency/curl", 1.15),
           Row("libcurl beside a socket, GET, one core", "one_core/GET/curl", "one_core/GET/socket"),
           Row("the core beside a socket, GET, one core", "one_core/GET/core", "one_core/GET/socket")],
          "hits"),
    Claim("Queueing", "TransportBenchmark",
          "What a post costs the thread that posts while as many hits wait as the queue may hold, so that\n"
          "each cancels an older one, beside a queue of 10.",
          [Row(f"{count:,} waiting", f"postWhileSuspended/{count}", "postWhileSuspended/10", goal,
               is_quick=count <= 2000)
           for count, goal in ((100, 1.5), (2000, 1.5), (100000, 2), (1000000, 3))],
          "queueing"),
]

"""What bench/run prints: for each workload and operation the library's time, the fastest peer's, and their ratio."""

import json
import statistics

# Rows of the table, in its order.
TITLES = {
    "request": "Small request: req_inv_data with EID and policy",
    "request_daily": "Small request, values of every day",
    "request_unlearned": "Small request, 60 % set, 2,048 messages",
    "sensor": "sensor_data, all fields",
    "sensor_daily": "sensor_data, values of every day",
    "sensor_unlearned": "sensor_data, 60 % set, 2,048 messages",
    "notification": "notify_event_data with all its records",
    "notification_daily": "notify_event_data, values of every day",
    "notification_unlearned": "notify_event_data, 60 % set, 2,048 messages",
    "chassis_4": "The example's chassis: resp_inv_data, 4 records of each of 17 kinds",
    "chassis_64": "The example's chassis, scaled to 64 records of each kind",
    "chassis_1024": "The example's chassis, scaled to 1,024 records of each kind",
    "main_same": "Main answer: resp_inv_data, 17 lists of 64 records, 60 % set, the same fields in a list",
    "main_drawn": "Main answer, fields drawn for each record",
    "handles": "resp_clients_hdl_data, 10,000 handles",
    "eeprom_64k": "scratch_eeprom with 64 KiB, copied",
    "eeprom_64k_by_reference": "scratch_eeprom with 64 KiB, by reference",
    "eeprom_16k_by_reference": "scratch_eeprom with 16 KiB, by reference",
    "idprom_4k": "idprom_data with 4 KiB, copied",
    "idprom_4k_by_reference": "idprom_data with 4 KiB, by reference",
    "scalars": "Scalars only: resp_admin_memory_data",
    "fields_34": "inv_db_base_entity_data, all 34 fields",
    "fields_34_daily": "inv_db_base_entity_data, values of every day",
    "fields_34_unlearned": "inv_db_base_entity_data, 60 % set, 2,048 messages",
}

# What the rows are measured on.
DATA = {
    "daily": "every day, and repeated",
    "drawn": "drawn anew",
    "by_reference": "by reference, peers copy",
    "growth": "growth series",
}

OPERATIONS = {
    "measure": "measure",
    "encode": "encode",
    "measure_and_encode": "measure + encode",
    "decode": "decode (arena)",
    "duplicate": "duplicate (arena)",
    "decode_and_free": "decode + free (malloc)",
}

# The library with an entity identifier whose calls cost next to nothing, to show how much the stand-in's cost.
FREE_IDENTIFIER = "free identifier"
PEERS = ("protobuf", "nanopb")  # what their names begin with; any further library was named on the command line
NOT_PEERS = ("vesk", "literal", "floor", FREE_IDENTIFIER)
# A message that is used again asks for no memory and gives none back: it stands beside those that do, not among them.
FREES_NOTHING = "protobuf reused"


# The library's time over the fastest peer's, as the geometric mean over the rows of a kind of data, is to be at most this.
TARGETS = {
    "daily": {"measure": 0.95, "encode": 0.88, "measure_and_encode": 1.25, "decode": 0.70, "duplicate": 0.52,
              "decode_and_free": 0.42},
    "drawn": {"measure": 0.60, "encode": 0.55, "measure_and_encode": 0.75, "decode": 0.50, "duplicate": 0.35,
              "decode_and_free": 0.36},
}

# What a variant for a newer processor is to take of that.
VARIANT_SHARE = 0.9

# No row is to be above the first of these, and above the second only where all of the difference is the entity
# identifier's calls or strlen. Measuring alone has no limit.
_RECORD_LIMITS = (1.1, 1.0)
LIMITS = {"encode": _RECORD_LIMITS, "measure_and_encode": (1.5,), "decode": _RECORD_LIMITS, "duplicate": _RECORD_LIMITS,
          "decode_and_free": _RECORD_LIMITS}
UNLIMITED_DATA = ("by_reference",)  # peers do other work


def title_of(workload):
    if workload.startswith("growth_"):
        return f"Growth series: resp_inv_data with {int(workload[len('growth_'):]):,} records"
    return TITLES[workload]


def median_ratio(ours, theirs):
    """The median over the rounds in which both took part."""
    return statistics.median(a / b for a, b in zip(ours, theirs) if a is not None and b is not None)


def _quartiles(ours, theirs):
    ratios = [a / b for a, b in zip(ours, theirs) if a is not None and b is not None]
    low, _, high = statistics.quantiles(ratios, n=4) if len(ratios) > 1 else (ratios[0],) * 3
    return [low, high]


def _summarise_operation(operation, rounds):
    times = {name: statistics.median(time for time in lane if time is not None) for name, lane in rounds.items()}
    left_out = (FREES_NOTHING,) if operation == "decode_and_free" else ()
    peers = [name for name in times if name.startswith(PEERS) and name not in left_out]
    others = {name: lane for name, lane in rounds.items() if name != "vesk"}
    fastest = min(peers, key=times.get)
    free_identifier = median_ratio(rounds[FREE_IDENTIFIER], rounds[fastest]) if FREE_IDENTIFIER in rounds else None
    return {"rounds": len(rounds["vesk"]), "nanoseconds": times,
            "ratios": {name: median_ratio(rounds["vesk"], lane) for name, lane in others.items()},
            "ratio_quartiles": {name: _quartiles(rounds["vesk"], lane) for name, lane in others.items()},
            "fastest_peer": fastest, "free_identifier_ratio": free_identifier}


def _limit_exceeded(ratio, operation):
    """The highest limit that the ratio is above, or None."""
    return next((limit for limit in LIMITS.get(operation, ()) if not is_met(ratio, limit)), None)


def add_rounds(measured, more):
    """Adds the rounds of another process."""
    for workload, result in more.items():
        for operation, rounds in result["operations"].items():
            for name, lane in rounds.items():
                measured[workload]["operations"][operation][name] += lane


def summarise(measured):
    """Medians of the times, and of the library's ratio to each other implementation."""
    summary = {}
    for workload, result in measured.items():
        operations = {name: _summarise_operation(name, rounds) for name, rounds in result["operations"].items()}
        for name, operation in operations.items():
            ratio = operation["ratios"][operation["fastest_peer"]]
            operation["above_limit"] = None if result["data"] in UNLIMITED_DATA else _limit_exceeded(ratio, name)
        summary[workload] = {**result, "operations": operations}
    return summary


def _three_digits(value):
    return f"{value:.3g}" if value < 100 else f"{value:.0f}"


def in_words(nanoseconds):
    for unit, size in (("s", 1e9), ("ms", 1e6), ("us", 1e3)):
        if nanoseconds >= size:
            return _three_digits(nanoseconds / size) + " " + unit
    return _three_digits(nanoseconds) + " ns"


def is_met(ratio, target):
    """Compared as printed."""
    return round(ratio, 2) <= target


def targets_for(cpu):
    """Of the plain library, if cpu is empty, or of the variant for that processor."""
    share = VARIANT_SHARE if cpu else 1
    return {data: {name: target * share for name, target in targets.items()} for data, targets in TARGETS.items()}


def target_text(target):
    """Two digits, or three if it has as many."""
    return f"{target:.2f}" if f"{target:.3f}".endswith("0") else f"{target:.3f}"


def further_libraries(summary):
    names = {name for result in summary.values() for operation in result["operations"].values()
             for name in operation["ratios"]}
    return sorted(name for name in names if not name.startswith(PEERS) and name not in NOT_PEERS)


def geometric_means(summary, other=None):
    """{kind of data: {"rows": how many, operation: mean ratio}} of the kinds that have targets; the ratio is to the fastest
    peer, or to the other library."""
    means = {}
    for data in TARGETS:
        rows = [result["operations"] for result in summary.values() if result["data"] == data]
        if rows:
            means[data] = {"rows": len(rows)} | {
                name: statistics.geometric_mean(row[name]["ratios"][other or row[name]["fastest_peer"]] for row in rows)
                for name in rows[0]}
    return means


def rows_above_limits(summary):
    """[(limit, ratio, workload, operation, ratio with a free identifier)], the highest limits and ratios first."""
    rows = [(operation["above_limit"], operation["ratios"][operation["fastest_peer"]], workload, name,
             ratio_with_free_identifier(operation))
            for workload, result in summary.items() for name, operation in result["operations"].items()
            if operation["above_limit"] is not None]
    return sorted(rows, key=lambda row: row[:2], reverse=True)


def _compared_with(operation, peer):
    """Cells of a row: the peer's time, and the ratio to it."""
    return [f"{in_words(operation['nanoseconds'][peer])}  {peer}", f"{operation['ratios'][peer]:.2f}"]


def ratio_with_free_identifier(operation):
    """To the fastest peer, which has its own identifier as ever."""
    ratio = operation["free_identifier_ratio"]
    return "" if ratio is None else f"{ratio:.2f}"


def _ratio_to(operation, name, digits=2):
    return f"{operation['ratios'][name]:.{digits}f}" if name in operation["ratios"] else ""


def _row(operation, further):
    above = "" if operation["above_limit"] is None else f"above {operation['above_limit']:.1f}"
    fastest = operation["fastest_peer"]
    return [in_words(operation["nanoseconds"]["vesk"])] + _compared_with(operation, fastest) + [
        above, ratio_with_free_identifier(operation), _ratio_to(operation, "floor", 1), _ratio_to(operation, "literal")] + [
        _ratio_to(operation, name) for name in further]


def rows_of(operations, further=()):
    """The headings, then a row for each operation."""
    rows = [["", "vesk", "fastest peer", "ratio", "limit", "id. free", "to floor", "to literal"] +
            [f"to {name}" for name in further]]
    for name, operation in operations.items():
        rows.append([OPERATIONS[name]] + _row(operation, further))
        if name == "decode_and_free" and FREES_NOTHING in operation["ratios"]:
            row = ["  beside one that frees nothing", ""] + _compared_with(operation, FREES_NOTHING)
            rows.append(row + [""] * (len(rows[0]) - len(row)))
    return rows


def notes(result):
    if result["longest_part"] > 65535:
        return "nanopb left out: Debian's counts in 16 bits, and a field or list here passes 65,535"
    return ""


def _print_columns(rows):
    widths = [max(len(row[column]) for row in rows) for column in range(len(rows[0]))]
    for row in rows:
        print("  " + "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())


def print_table(summary, with_peers=False):
    further = further_libraries(summary)
    for workload, result in summary.items():
        count = result["messages"]
        plural = f"{count} messages in turn, up to" if count > 1 else "one message,"
        print(f"\n{title_of(workload)}  [{workload}: {DATA[result['data']]}; "
              f"{plural} {result['longest_encoding']:,} bytes]")
        if notes(result):
            print(f"  {notes(result)}")
        _print_columns(rows_of(result["operations"], further))
        if with_peers:
            _print_peers(result)


def _print_peers(result):
    for name, operation in result["operations"].items():
        times = sorted(operation["nanoseconds"].items(), key=lambda item: item[1])
        print(f"    {OPERATIONS[name]}: " + ", ".join(f"{peer} {in_words(time)}" for peer, time in times))


def print_summary(summary, targets):
    """The means beside their targets, and the rows above the limits."""
    print("\nTime over the fastest peer's: geometric means and targets")
    rows = [["", "rows"] + list(OPERATIONS.values())]
    for data, means in geometric_means(summary).items():
        cells = [f"{means[name]:.2f} {'<=' if is_met(means[name], target) else '> '} {target_text(target)}"
                 if name in means else "" for name, target in targets[data].items()]
        rows.append([DATA[data], str(means["rows"])] + cells)
    for other in further_libraries(summary):
        for data, means in geometric_means(summary, other).items():
            rows.append([f"{DATA[data]}: to {other}", str(means["rows"])] +
                        [f"{means[name]:.2f}" if name in means else "" for name in OPERATIONS])
    _print_columns(rows)
    above = rows_above_limits(summary)
    print("\nRows above the limits: " + ("none" if not above else str(len(above))))
    for limit, ratio, workload, name, free in above:
        print(f"  {workload} {OPERATIONS[name]} {ratio:.2f} > {limit:.1f}" + (free and f", with a free identifier {free}"))


def print_counts(counts, literal_counts, growth_exponents):
    """Instructions and mispredictions per call inside the library, and how instructions grow."""
    print("Per call inside libvesk_inventory.so, libc's and the entity identifier's library not counted")
    for workload, operations in counts.items():
        print(f"\n{title_of(workload)}  [{workload}]")
        rows = [["", "instructions", "to literal", "mispredictions", "literal's"]]
        for name, title in OPERATIONS.items():
            ours, literal = operations[name], literal_counts.get(workload, {}).get(name)
            rows.append([title, f"{ours['instructions']:,.0f}",
                         literal and f"{ours['instructions'] / literal['instructions']:.2f}" or "",
                         f"{ours['mispredictions']:,.1f}", literal and f"{literal['mispredictions']:,.1f}" or ""])
        _print_columns(rows)
    if growth_exponents:
        print("\nInstructions grow with the number of records to the power of")
        for name, exponent in growth_exponents.items():
            print(f"  {OPERATIONS[name]:22}  {exponent:.3f}")


def write_json(values, path):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(values, file, indent=1)
        file.write("\n")

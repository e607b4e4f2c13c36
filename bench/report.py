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

NOT_PEERS = ("vesk", "literal", "floor")
# A message that is used again asks for no memory and gives none back: it stands beside those that do, not among them.
FREES_NOTHING = "protobuf reused"


def _targets(decode, encode, measure_and_encode, measure, duplicate, decode_and_free):
    return {"decode": decode, "encode": encode, "measure_and_encode": measure_and_encode, "measure": measure,
            "duplicate": duplicate, "decode_and_free": decode_and_free}


# The library's time over the fastest peer's is to be at most this.
_RECORD = _targets(0.85, 0.85, 1.1, 1.5, 0.35, 0.60)
_SMALL = _targets(0.75, 0.85, 1.2, 1.5, 0.50, 0.60)
_COPIED = _targets(1.0, 1.0, 1.0, None, 1.0, 1.0)
TARGETS = {
    "main_same": _targets(0.70, 0.55, 0.75, 1.0, 0.25, 0.45),
    "main_drawn": _targets(0.80, 0.50, 0.65, 0.70, 0.25, 0.50),
    "handles": _targets(0.70, 0.50, 0.60, 0.90, 0.40, 0.50),
    "sensor": _RECORD,
    "notification": _RECORD,
    "request": _SMALL,
    "scalars": _SMALL,
    "fields_34": _SMALL,
    "eeprom_64k": _COPIED,
    "idprom_4k": _COPIED,
}

# The same for the literal implementation.
LITERAL_TARGETS = {
    workload: {"measure": 0.10, "measure_and_encode": 0.15} for workload in ("main_same", "main_drawn")
}


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
    left_out = NOT_PEERS + ((FREES_NOTHING,) if operation == "decode_and_free" else ())
    peers = [name for name in times if name not in left_out]
    others = {name: lane for name, lane in rounds.items() if name != "vesk"}
    return {"rounds": len(rounds["vesk"]), "nanoseconds": times,
            "ratios": {name: median_ratio(rounds["vesk"], lane) for name, lane in others.items()},
            "ratio_quartiles": {name: _quartiles(rounds["vesk"], lane) for name, lane in others.items()},
            "fastest_peer": min(peers, key=times.get)}


def summarise(measured):
    """Medians of the times, and of the library's ratio to each other implementation."""
    summary = {}
    for workload, result in measured.items():
        operations = {name: _summarise_operation(name, rounds) for name, rounds in result["operations"].items()}
        for name, operation in operations.items():
            operation["target"] = TARGETS.get(workload, {}).get(name)
            operation["literal_target"] = LITERAL_TARGETS.get(workload, {}).get(name)
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


def verdict(ratio, target):
    return "" if target is None else f"{target:.2f} " + ("met" if is_met(ratio, target) else "MISSED")


def _compared_with(operation, peer):
    """Cells of a row: the peer's time, and the ratio to it."""
    return [f"{in_words(operation['nanoseconds'][peer])}  {peer}", f"{operation['ratios'][peer]:.2f}"]


def _row(operation):
    ratios = operation["ratios"]
    literal = ""
    if "literal" in ratios:
        literal = f"{ratios['literal']:.2f}"
        if operation["literal_target"] is not None:
            literal += f" (target {verdict(ratios['literal'], operation['literal_target'])})"
    floor = f"{ratios['floor']:.1f}" if "floor" in ratios else ""
    fastest = operation["fastest_peer"]
    return [in_words(operation["nanoseconds"]["vesk"])] + _compared_with(operation, fastest) + [
        verdict(ratios[fastest], operation["target"]), floor, literal]


def rows_of(operations):
    """[[operation, time, fastest peer, ratio, target, ratio to the floor, ratio to the literal implementation]]"""
    rows = []
    for name, operation in operations.items():
        rows.append([OPERATIONS[name]] + _row(operation))
        if name == "decode_and_free" and FREES_NOTHING in operation["ratios"]:
            rows.append(["  beside one that frees nothing", ""] + _compared_with(operation, FREES_NOTHING) + ["", "", ""])
    return rows


HEADINGS = ["", "vesk", "fastest peer", "ratio", "target", "to floor", "to literal"]


def notes(result):
    if result["longest_part"] > 65535:
        return "nanopb left out: Debian's counts in 16 bits, and a field or list here passes 65,535"
    return ""


def print_table(summary, with_peers=False):
    for workload, result in summary.items():
        count = result["messages"]
        plural = f"{count} messages in turn, up to" if count > 1 else "one message,"
        print(f"\n{title_of(workload)}  [{workload}: {DATA[result['data']]}; "
              f"{plural} {result['longest_encoding']:,} bytes]")
        if notes(result):
            print(f"  {notes(result)}")
        rows = [HEADINGS] + rows_of(result["operations"])
        widths = [max(len(row[column]) for row in rows) for column in range(len(HEADINGS))]
        for row in rows:
            print("  " + "  ".join(cell.ljust(width) for cell, width in zip(row, widths)).rstrip())
        if with_peers:
            _print_peers(result)


def _print_peers(result):
    for name, operation in result["operations"].items():
        times = sorted(operation["nanoseconds"].items(), key=lambda item: item[1])
        print(f"    {OPERATIONS[name]}: " + ", ".join(f"{peer} {in_words(time)}" for peer, time in times))


def print_score(summary):
    """How many targets are met, and which are not."""
    missed = []
    total = 0
    for workload, result in summary.items():
        for name, operation in result["operations"].items():
            pairs = [(operation["fastest_peer"], operation["target"], ""),
                     ("literal", operation["literal_target"], " of literal")]
            for other, target, suffix in pairs:
                if target is None or other not in operation["ratios"]:
                    continue
                total += 1
                ratio = operation["ratios"][other]
                if not is_met(ratio, target):
                    missed.append(f"{workload} {OPERATIONS[name]} {ratio:.2f} > {target:.2f}{suffix}")
    print(f"\n{total - len(missed)} of {total} targets met" + ("" if not missed else "; missed:"))
    for line in missed:
        print(f"  {line}")


def print_counts(instructions, literal_instructions, growth_exponents):
    """Instructions per call inside the library, and how they grow."""
    print("Instructions per call inside libvesk_inventory.so, libc's and the entity identifier's library not counted")
    for workload, operations in instructions.items():
        print(f"\n{title_of(workload)}  [{workload}]")
        for name, title in OPERATIONS.items():
            line = f"  {title:22}  {operations[name]:14,.0f}"
            if workload in literal_instructions:
                share = operations[name] / literal_instructions[workload][name]
                line += f"   {share:.2f} of the literal implementation"
            print(line)
    if growth_exponents:
        print("\nInstructions grow with the number of records to the power of")
        for name, exponent in growth_exponents.items():
            print(f"  {OPERATIONS[name]:22}  {exponent:.3f}")


def write_json(values, path):
    with open(path, "w", encoding="utf-8") as file:
        json.dump(values, file, indent=1)
        file.write("\n")

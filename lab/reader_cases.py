"""The cases of card_tests.py with several readers: which card a command is about, and that it asks no other."""

from cases import contains, equal

FIRST, SECOND = "Brightfold Orvane OrvaneDSC", "Brightfold Smart Token"
FIRST_SERIAL, SECOND_SERIAL = "0012AB", "77CC01"
FIRST_KEYS = [f"Orvane test user ({FIRST_SERIAL} key {number})" for number in (1, 2, 3)]
SECOND_KEYS = [f"Orvane test user ({SECOND_SERIAL} key 1)"]


def of_two(run, *arguments):
    """Runs the tool with a token in each of two readers; returns its status and the first document's result."""
    run.more_readers = [(SECOND, SECOND_SERIAL)]
    status, documents = run.tool(FIRST, FIRST_SERIAL, [], *arguments)
    equal(documents[0]["ok"], status == 0, f"success, {documents}")
    return status, documents[0]["result"]


def asked(run):
    """Which cards were asked for anything."""
    return [line != "none" for line in run.card_commands().splitlines()]


def readers_with_card(result):
    return [reader["name"] for reader in result["readers"] if reader["cardPresent"]]


def subjects(result):
    return [container["certificate"]["subjectName"] for container in result["containers"]]


def info(run):
    status, result = of_two(run, "info")
    equal((status, readers_with_card(result)), (0, [f"{FIRST} 00 00", f"{SECOND} 00 00"]), "status and readers with a card")
    equal((result["reader"], result["cardid"]["ascii"]), (f"{FIRST} 00 00", (FIRST_SERIAL * 3)[:16]), "the first one's card")
    equal(asked(run), [True, False], "cards asked")
    status, result = of_two(run, "--reader", f"{SECOND} 00 00", "info")
    equal((status, result["reader"], result["cardid"]["ascii"]), (0, f"{SECOND} 00 00", (SECOND_SERIAL * 3)[:16]),
          "status, reader and card of the second")
    equal(asked(run), [False, True], "cards asked")


def keys(run):
    status, result = of_two(run, "list")
    equal((status, subjects(result)), (0, FIRST_KEYS), "status and keys of the first")
    status, result = of_two(run, "--reader", f"{SECOND} 00 00", "list")
    equal((status, subjects(result)), (0, SECOND_KEYS), "status and keys of the second")
    equal(asked(run), [False, True], "cards asked")


def doctor(run):
    """Everything is well with either token, and what is said about it is about no other."""
    for reader, own, others in ((FIRST, FIRST_KEYS, SECOND_KEYS), (SECOND, SECOND_KEYS, FIRST_KEYS)):
        status, result = of_two(run, "--reader", f"{reader} 00 00", "doctor")
        steps = {step["step"]: step for step in result["steps"]}
        # The store is never reached: the emulated system has no service that copies certificates.
        equal((status, {name for name, step in steps.items() if step["state"] != "ok"}), (0, {"store"}),
              f"status and what is not ok, {steps}")
        contains(steps["card"]["finding"], f'"{reader} 00 00"', "card")
        for subject in own:
            contains(steps["keys"]["finding"], subject, "keys")
        for subject in others:
            if subject in steps["keys"]["finding"] + steps["store"]["finding"]:
                raise AssertionError(f"doctor about {reader} names another token's {subject}")


def first_is_empty(run):
    """The token is found although it is not in the first reader."""
    run.more_readers = [(SECOND, SECOND_SERIAL)]
    status, documents = run.tool(FIRST, "-", [], "info")
    result = documents[0]["result"]
    equal((status, result["reader"], result["cardid"]["ascii"]), (0, f"{SECOND} 00 00", (SECOND_SERIAL * 3)[:16]),
          "status, reader and card")
    status, documents = run.tool(FIRST, "-", [], "--reader", f"{FIRST} 00 00", "info")
    equal((status, documents[0]["ok"]), (3, False), f"exit status and success, {documents}")


def two_of_one_name(run):
    """Two readers of one name and one of another come in this order, each with its own card."""
    run.more_readers = [(SECOND, SECOND_SERIAL), (FIRST, "88DEC1")]
    cards = {f"{FIRST} 00 00": FIRST_SERIAL, f"{FIRST} 00 01": "88DEC1", f"{SECOND} 00 00": SECOND_SERIAL}
    for reader, serial in cards.items():
        status, documents = run.tool(FIRST, FIRST_SERIAL, [], "--reader", reader, "info")
        result = documents[0]["result"]
        equal((status, readers_with_card(result)), (0, list(cards)), f"status and readers with a card, {documents}")
        equal((result["reader"], result["cardid"]["ascii"]), (reader, (serial * 3)[:16]), "reader and card")


CASES = {
    "TwoReadersInfo": info,
    "TwoReadersList": keys,
    "TwoReadersDoctor": doctor,
    "TwoReadersFirstEmpty": first_is_empty,
    "TwoReadersOfOneName": two_of_one_name,
}

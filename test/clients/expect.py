"""What the clients share: the expectations and how they are told."""


class Unexpected(Exception):
    """A client got something else than it should."""


def expect(condition, text):
    if not condition:
        raise Unexpected(text)

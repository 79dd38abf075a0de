"""What a person is told in one line."""


class Problem(Exception):
    """The command cannot be carried out; the text says why."""

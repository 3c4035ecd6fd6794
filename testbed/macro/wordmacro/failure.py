class Failure(Exception):
    """What went wrong, as one sentence for the person at the terminal."""

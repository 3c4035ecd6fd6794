class Failure(Exception):
    """The reason of a failure, as a sentence for the user."""

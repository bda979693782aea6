"""Outside: finds the reports of sanitizers in what a program wrote to its standard error."""

import re

FIRST_LINES = re.compile(r"^.*(?:WARNING: ThreadSanitizer|ERROR: AddressSanitizer|ERROR: LeakSanitizer|"
                         r"FATAL: ThreadSanitizer|(?:Address|Thread|Leak)Sanitizer:\s*(?:CHECK failed|DEADLYSIGNAL)|"
                         r"ERROR: ThreadSanitizer|: runtime error: ).*$", re.MULTILINE)


def reports(text: str) -> list[str]:
    """Each report from its first line up to the next one."""
    starts = [match.start() for match in FIRST_LINES.finditer(text)]
    return [text[start:end].rstrip() for start, end in zip(starts, starts[1:] + [len(text)])]

"""A private little router in which the unmodified daemon runs; see README.md. Nothing is imported here on purpose: the
keeper starts once per router, and what it does not load it does not wait for."""

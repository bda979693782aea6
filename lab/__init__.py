"""Two routers on a real kernel, with the real services and real packets; see docs/lab.md."""

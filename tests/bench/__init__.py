"""Benchmarks of the program, side by side with what it is measured against; scripts/bench runs them."""

"""Measures the splash against the least that could do the same: see docs/performance.md."""

"""The families of faults, one module each."""

"""A cluster of Kite's collectors on one machine: three of each, to try and to break (scripts/cluster)."""

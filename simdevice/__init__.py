"""A Kelta device without the hardware: its network, its system bus and the services around the daemon."""

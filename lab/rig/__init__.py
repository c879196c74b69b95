"""What the scenarios are made of: namespaces and cables, real hosts and routers, and the switch."""

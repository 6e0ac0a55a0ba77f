// The VM side of the shared-memory transport (stub).

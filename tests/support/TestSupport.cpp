// Placeholder so the support library has a source.

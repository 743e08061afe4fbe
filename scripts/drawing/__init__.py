"""The drawings of the documents."""

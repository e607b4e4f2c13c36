# Sourced: copy_tree SOURCE COPY makes a repository of its own of what stands in a checkout, committed or not.
copy_tree() {
    mkdir -p "$2"
    (cd "$1" && git ls-files -z --cached --others --exclude-standard | xargs -0 ls -d 2>/dev/null) |
        tar -C "$1" -cf - -T - | tar -C "$2" -xf -
    git -C "$2" init -q
    git -C "$2" add -A
}
commit() {  # COPY: whatever has changed
    git -C "$1" add -A
    GIT_AUTHOR_DATE='2026-01-02T03:04:05Z' GIT_COMMITTER_DATE='2026-01-02T03:04:05Z' \
        git -C "$1" -c user.name=tester -c user.email=tester@example.org -c commit.gpgsign=false commit -qm change
}

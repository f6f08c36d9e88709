# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The backup script template's logic on real files, with the real psync and
# rsync. Runs as root inside the test sandbox (it mounts a small tmpfs to
# play a full disk, and the run flags and error files are at fixed paths).
# encoding: ASCII-8BIT
require "test/unit"
require "tmpdir"
require "digest"
require "fileutils"
require "etc"

TEMPLATE = ENV.fetch("OV_TEMPLATE")
PSYNC = ENV.fetch("OV_PSYNC")
load TEMPLATE

class TestBackupScript < Test::Unit::TestCase
  def setup
    raise "runs only inside tests/sandbox/ov-sandbox" unless ENV["OV_IN_SANDBOX"]
    @dir = Dir.mktmpdir("ov-backup")
    # The Safety Net folder's owner moves the archives in: it must reach them.
    File.chmod(0o755, @dir)
    @source = File.join(@dir, "source")
    @dest = File.join(@dir, "dest")
    @net = File.join(@dir, "Safety Net Archives")
    FileUtils.mkdir_p([@source, @dest, @net])
    FileUtils.rm_f(["/tmp/ov_Daily.run", "/tmp/ov_Daily.progress", "/var/log/.orvane_daily.err"])
  end

  def teardown
    system("umount", "-q", @full) if @full
    FileUtils.rm_rf(@dir)
  end

  def settings(**changes)
    {
      frequency: "Daily", backupCommand: PSYNC, sourceFolders: [@source], destFolders: [@dest],
      logfile: File.join(@dir, "daily.log"), lastBackup: File.join(@dir, ".lastbackup"),
      toastApplicationName: "Toast Titanium", username: "root", remoteBackup: false, showProgress: false,
      repairPermissions: false, promptBeforeBackup: false, shouldWaitUntilAway: false, autoConnect: false,
      remoteServerName: "", remoteAccountName: "", remoteVolumeName: "", shouldArchive: false, maxArchives: 0,
      safetyNetFolder: "", archiveContents: "", runKind: "scheduled"
    }.merge(changes)
  end

  def run_backup(**changes)
    OrvaneBackup.new(settings(**changes)).run
  end

  def write(path, data, mode: 0o644)
    FileUtils.mkdir_p(File.dirname(path))
    File.binwrite(path, data)
    File.chmod(mode, path)
  end

  # An earlier version: rsync tells versions apart by size and time.
  def write_old(path, data)
    write(path, data)
    FileUtils.touch(path, mtime: Time.now - 3600)
  end

  # Every entry below a folder: relative path => kind and content digest.
  def tree(folder)
    Dir.glob("**/*", File::FNM_DOTMATCH, base: folder).reject { |p| p.end_with?("/.") || p == "." }.sort.to_h do |p|
      full = File.join(folder, p)
      st = File.lstat(full)
      value = if st.symlink? then "link:#{File.readlink(full)}"
              elsif st.directory? then "dir:#{format('%o', st.mode & 0o7777)}"
              else "file:#{format('%o', st.mode & 0o7777)}:#{st.uid}:#{Digest::SHA256.file(full).hexdigest}"
              end
      [p, value]
    end
  end

  def test_copies_an_awkward_tree_and_keeps_the_status
    awkward = ["Fotos ✓/été.txt", "with space", "quote \" mark", "evil \#{`touch /tmp/pwned`}", "new\nline",
               ".hidden", "empty"]
    awkward.each { |name| write(File.join(@source, name), "content of #{name}") }
    File.truncate(File.join(@source, "empty"), 0)
    FileUtils.mkdir_p(File.join(@source, "empty folder"))
    File.symlink("Fotos ✓/été.txt", File.join(@source, "link"))
    File.link(File.join(@source, "with space"), File.join(@source, "hard link"))
    write(File.join(@source, "private"), "secret", mode: 0o600)
    File.chown(Etc.getpwnam("nobody").uid, nil, File.join(@source, "private"))
    File.open(File.join(@source, "sparse"), "wb") { |f| f.truncate(2 * 1024**3) }
    before = tree(@source)

    assert_equal(0, run_backup)
    assert_equal(before, tree(@dest))
    assert_equal(before, tree(@source), "the source is never written")
    assert_false(File.exist?("/tmp/pwned"), "no name runs code")
    assert(File.lstat(File.join(@dest, "sparse")).blocks < 1024, "a sparse file stays sparse")
    assert_equal(File.stat(File.join(@dest, "with space")).ino, File.stat(File.join(@dest, "hard link")).ino)

    assert_equal(Time.now.strftime("%m/%d/%y"), File.read(File.join(@dir, ".lastbackup")))
    assert_false(File.exist?("/var/log/.orvane_daily.err"), "no errors, no error file")
    assert_false(File.exist?("/tmp/ov_Daily.run"))
    assert_match(/Daily: backup complete/, File.read(File.join(@dir, "daily.log")))
  end

  def test_mirror_deletes_only_what_the_sources_lack
    write(File.join(@source, "kept"), "kept")
    write(File.join(@dest, "only at the destination"), "extra")
    assert_equal(0, run_backup)
    assert(File.exist?(File.join(@dest, "only at the destination")), "without mirroring nothing is deleted")
    other = File.join(@dir, "other")
    write(File.join(other, "untouched"), "x")

    assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d"))
    assert_equal(["kept"], Dir.children(@dest))
    assert_equal(["untouched"], Dir.children(other))
    assert_equal(["kept"], Dir.children(@source))
  end

  def test_safety_net_keeps_replaced_and_deleted_files
    write_old(File.join(@dest, "changed"), "old version")
    write(File.join(@dest, "deleted"), "deleted file")
    write(File.join(@dest, "same"), "same")
    write(File.join(@source, "changed"), "new version")
    write(File.join(@source, "same"), "same")
    FileUtils.touch(File.join(@dest, "same"), mtime: File.mtime(File.join(@source, "same")))
    old_inode = File.stat(File.join(@dest, "changed")).ino

    net = { shouldArchive: true, maxArchives: 3, safetyNetFolder: @net, archiveContents: "Everything" }
    assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", **net))
    archives = Dir.children(@net)
    assert_equal(1, archives.size)
    kept = File.join(@net, archives.first, @dest.delete_prefix("/"))
    assert_equal("old version", File.read(File.join(kept, "changed")))
    assert_equal("deleted file", File.read(File.join(kept, "deleted")))
    assert_false(File.exist?(File.join(kept, "same")))
    # Moved, not copied: the archive holds the old file itself.
    assert_equal(old_inode, File.stat(File.join(kept, "changed")).ino)
    assert_equal("new version", File.read(File.join(@dest, "changed")))
    assert_false(File.exist?(File.join(@dest, "deleted")))
  end

  # Each choice keeps exactly its files, whatever the names; the archives
  # belong to the Safety Net folder's owner; each frequency prunes its own.
  def test_safety_net_choice_count_owner_and_layout
    nobody = Etc.getpwnam("nobody")
    File.chown(nobody.uid, nobody.gid, @net)
    weekly = File.join(@net, "2020-01-01 00.00.00 Weekly")
    FileUtils.mkdir_p(weekly)
    FileUtils.mkdir_p(File.join(@net, "unrelated folder"))
    expected = {
      "Changed" => ["a -> b", "became a folder", "changed", "link"],
      "Deleted" => ["deleted", "gone folder/inside", "line\nbreak"],
    }
    expected["Everything"] = (expected["Changed"] + expected["Deleted"]).sort
    %w[Changed Deleted Everything].each do |contents|
      FileUtils.rm_rf([@source, @dest])
      write_old(File.join(@dest, "changed"), "old")
      write(File.join(@source, "changed"), "new!")
      write_old(File.join(@dest, "a -> b"), "old arrow")
      write(File.join(@source, "a -> b"), "new arrow")
      write(File.join(@dest, "became a folder"), "a file")
      write(File.join(@source, "became a folder", "now inside"), "x")
      File.symlink("old target", File.join(@dest, "link"))
      File.symlink("new target", File.join(@source, "link"))
      write(File.join(@dest, "deleted"), "deleted")
      write(File.join(@dest, "line\nbreak"), "deleted")
      write(File.join(@dest, "gone folder", "inside"), "deleted", mode: 0o600)
      write(File.join(@source, "same"), "same")
      FileUtils.cp(File.join(@source, "same"), File.join(@dest, "same"), preserve: true)
      before = Dir.children(@net)
      assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", shouldArchive: true, maxArchives: 2, safetyNetFolder: @net,
                                 archiveContents: contents))
      assert_equal(tree(@source), tree(@dest).reject { |p, _| p.start_with?(".psync") })
      made = Dir.children(@net) - before
      assert_equal(1, made.size, contents)
      assert_match(/\A\d{4}-\d\d-\d\d \d\d\.\d\d\.\d\d Daily\z/, made.first)
      archive = File.join(@net, made.first)
      kept = File.join(archive, @dest.delete_prefix("/"))
      files = Dir.glob("**/*", File::FNM_DOTMATCH, base: kept).reject { |p| File.directory?(File.join(kept, p)) && !File.symlink?(File.join(kept, p)) }
      assert_equal(expected[contents], files.sort, contents)
      assert_equal("old target", File.readlink(File.join(kept, "link"))) if contents != "Deleted"
      # The archive is the folder owner's, who may delete it; a file keeps
      # its mode. The destination keeps no staging folder.
      Dir.glob("**/*", File::FNM_DOTMATCH, base: archive).map { |d| File.join(archive, d) }.push(archive).each do |path|
        next if path.end_with?("/.")
        assert_equal(nobody.uid, File.lstat(path).uid, path)
      end
      if contents != "Changed"
        assert_equal(0o600, File.lstat(File.join(kept, "gone folder", "inside")).mode & 0o777)
      end
      assert_empty(Dir.children(@dest).grep(/\A\.orvane-kept/))
      sleep 1.1 # archives are named by the second
    end
    daily = Dir.children(@net).grep(/Daily\z/)
    assert_equal(2, daily.size, "at most maxArchives daily archives stay")
    assert(File.directory?(weekly), "a daily run leaves the weekly archives alone")
    assert(File.directory?(File.join(@net, "unrelated folder")))

    # Nothing replaced, nothing archived: no empty archive.
    assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", shouldArchive: true, maxArchives: 2, safetyNetFolder: @net))
    assert_equal(daily.sort, Dir.children(@net).grep(/Daily\z/).sort)
  end

  # A Safety Net on another disk than the destination: the kept files are
  # copied there (by the folder's owner) and leave the destination; a file
  # hard-linked to one the backup keeps becomes a copy of its own first, so
  # the owner of the archive never holds a file of the backup.
  def test_safety_net_on_another_disk_and_hard_links
    nobody = Etc.getpwnam("nobody")
    disk = File.join(@dir, "other disk")
    FileUtils.mkdir_p(disk)
    assert(system("mount", "-t", "tmpfs", "-o", "size=16m", "ov-net", disk))
    @full = disk # unmounted in teardown
    net = File.join(disk, "Safety Net Archives")
    FileUtils.mkdir_p(net)
    File.chown(nobody.uid, nobody.gid, net)
    write_old(File.join(@dest, "changed"), "old")
    write(File.join(@source, "changed"), "new!")
    write(File.join(@dest, "deep", "er", "deleted"), "deleted", mode: 0o600)
    write(File.join(@dest, "linked"), "shared")
    File.link(File.join(@dest, "linked"), File.join(@dest, "deep", "twin"))
    write(File.join(@source, "deep", "twin"), "twin")
    assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", shouldArchive: true, maxArchives: 3, safetyNetFolder: net))
    archive = Dir.children(net)
    assert_equal(1, archive.size)
    kept = File.join(net, archive.first, @dest.delete_prefix("/"))
    files = Dir.glob("**/*", base: kept).reject { |p| File.directory?(File.join(kept, p)) }.sort
    assert_equal(["changed", "deep/er/deleted", "deep/twin", "linked"], files)
    assert_equal("deleted", File.read(File.join(kept, "deep", "er", "deleted")))
    files.each { |f| assert_equal(nobody.uid, File.lstat(File.join(kept, f)).uid, f) }
    assert_equal(1, File.lstat(File.join(kept, "linked")).nlink)
    assert_equal(tree(@source), tree(@dest))
    assert_false(File.exist?("/var/log/.orvane_daily.err"))
  end

  # The Safety Net folder's owner races the run with links to a folder only
  # root may write: whatever they swap, before the run or during it,
  # nothing lands there; what could not be handed over stays at the
  # destination, the run says so, and the next run hands it over.
  def test_safety_net_owner_cannot_redirect_root
    nobody = Etc.getpwnam("nobody")
    home = File.join(@dir, "home")
    net = File.join(home, "Safety Net Archives")
    FileUtils.mkdir_p(net)
    FileUtils.chown(nobody.uid, nobody.gid, [home, net])
    root_only = File.join(@dir, "root only")
    FileUtils.mkdir_p(root_only)
    File.chmod(0o700, root_only)
    as_nobody = ->(script, *args) { assert(system("runuser", "-u", "nobody", "--", "sh", "-c", script, "sh", *args)) }
    second = [File.join(@dir, "source 2"), File.join(@dir, "dest 2")]
    write(File.join(@source, "a"), "new a")
    write_old(File.join(@dest, "a"), "old a")
    write(File.join(second[0], "b"), "new b")
    write_old(File.join(second[1], "b"), "old b")
    pairs = { sourceFolders: [@source, second[0]], destFolders: [@dest, second[1]] }

    # Before the run: the folder itself is a link. Nothing is overwritten.
    as_nobody["mv \"$1\" \"$1.real\" && ln -s \"$2\" \"$1\"", net, root_only]
    assert_equal(1, run_backup(shouldArchive: true, maxArchives: 3, safetyNetFolder: net, **pairs))
    assert_match(/not backed up, so that no earlier version at .*dest is lost: the Safety Net folder .* cannot be used/,
                 File.read("/var/log/.orvane_daily.err"))
    assert_equal("old a", File.read(File.join(@dest, "a")))
    as_nobody["rm \"$1\" && mv \"$1.real\" \"$1\"", net]

    # During the run, as psync starts for each pair: first the folder goes
    # elsewhere and a link takes its place, then the archive the first pair
    # filled becomes a link.
    racer = File.join(@dir, "racing-psync")
    File.write(racer, <<~SH)
      #!/bin/sh
      if [ -e '#{net}.real' ]; then
          for a in '#{net}.real'/*Daily; do
              runuser -u nobody -- sh -c 'mv "$1" "$1.moved" && ln -s "$2" "$1"' sh "$a" '#{root_only}'
          done
      else
          runuser -u nobody -- sh -c 'mv "$1" "$1.real" && ln -s "$2" "$1"' sh '#{net}' '#{root_only}'
      fi
      exec #{PSYNC} "$@"
    SH
    File.chmod(0o755, racer)
    assert_equal(1, run_backup(backupCommand: racer, shouldArchive: true, maxArchives: 3, safetyNetFolder: net, **pairs))
    assert_empty(Dir.children(root_only), "nothing lands where only root may write")
    assert_equal(["new a", "new b"], [File.read(File.join(@dest, "a")), File.read(File.join(second[1], "b"))])
    # The first pair's files went through the folder the run had opened.
    moved = Dir.glob("*.moved", base: "#{net}.real")
    assert_equal(1, moved.size)
    assert_equal("old a", File.read(File.join("#{net}.real", moved.first, @dest.delete_prefix("/"), "a")))
    assert_match(%r{Safety Net: the earlier versions from .*dest 2 could not be moved into .*Safety Net Archives \(.*Permission denied\); they stay in .*dest 2/\.orvane-kept-\d+},
                 File.read("/var/log/.orvane_daily.err"))
    left = Dir.children(second[1]).grep(/\A\.orvane-kept-/)
    assert_equal(1, left.size)

    # The owner undoes it; the next run hands the leftover over, and never
    # copies or deletes it meanwhile.
    as_nobody["rm \"$1\" && mv \"$1.real\" \"$1\"", net]
    sleep 1.1 # archives are named by the second
    assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", shouldArchive: true, maxArchives: 3, safetyNetFolder: net, **pairs))
    assert_empty(Dir.children(second[1]).grep(/\A\.orvane-kept-/))
    found = Dir.glob(File.join(net, "*Daily", second[1].delete_prefix("/"), "b"))
    assert_equal(["old b"], found.map { |f| File.read(f) })
    assert_empty(Dir.children(root_only))
  end

  # Old archives are their owner's, who may have put links in them: pruning
  # removes the links, never what they point at, and one it cannot remove is
  # an error the user sees.
  def test_pruning_follows_no_link_and_reports_failure
    nobody = Etc.getpwnam("nobody")
    victim = File.join(@dir, "victim")
    write(File.join(victim, "keep"), "keep")
    old = %w[2020-01-01 2020-01-02].map { |day| File.join(@net, "#{day} 00.00.00 Daily") }
    old.each do |archive|
      write(File.join(archive, "dest", "file"), "archived")
      File.symlink(victim, File.join(archive, "dest", "link"))
      File.symlink(victim, File.join(archive, "top link"))
    end
    FileUtils.chown_R(nobody.uid, nobody.gid, [@net] + old)
    write(File.join(@source, "a"), "new")
    write_old(File.join(@dest, "a"), "old")
    assert_equal(0, run_backup(shouldArchive: true, maxArchives: 1, safetyNetFolder: @net))
    assert_equal(1, Dir.children(@net).size, Dir.children(@net).inspect)
    assert_equal("keep", File.read(File.join(victim, "keep")))
    assert_equal(2, File.read(File.join(@dir, "daily.log")).scan("removed the old archive 2020-01-0").size)

    # An archive that cannot go (made immutable stands in for a disk error).
    stuck = File.join(@net, "2020-01-03 00.00.00 Daily")
    write(File.join(stuck, "file"), "archived")
    skip("no chattr here") unless system("chattr", "+i", stuck, err: File::NULL)
    begin
      sleep 1.1 # archives are named by the second
      write_old(File.join(@dest, "a"), "old again")
      assert_equal(1, run_backup(shouldArchive: true, maxArchives: 1, safetyNetFolder: @net))
      assert_match(/Safety Net: old archives in .*Safety Net Archives could not be removed \(\/bin\/rm: cannot remove '2020-01-03 00.00.00 Daily\/file'/,
                   File.read("/var/log/.orvane_daily.err"))
    ensure
      system("chattr", "-i", stuck)
    end
  end

  # The Safety Net folder inside a source is never copied; a missing one is
  # never made (nor its parents) and nothing is overwritten without it.
  def test_safety_net_folder_is_not_backed_up_and_never_made
    inside = File.join(@source, "Documents", "Safety Net Archives")
    write(File.join(inside, "2026-01-01 00.00.00 Daily", "old"), "archived")
    write(File.join(@source, "Documents", "letter"), "letter")
    assert_equal(0, run_backup(shouldArchive: true, maxArchives: 3, safetyNetFolder: inside))
    assert_equal(["letter"], Dir.children(File.join(@dest, "Documents")))

    write_old(File.join(@dest, "Documents", "letter"), "old letter")
    missing = File.join(@dir, "no such parent", "Safety Net Archives")
    assert_equal(1, run_backup(shouldArchive: true, maxArchives: 3, safetyNetFolder: missing))
    assert_false(File.exist?(File.join(@dir, "no such parent")), "no folder is made as root")
    assert_equal("old letter", File.read(File.join(@dest, "Documents", "letter")))
    assert_match(/not backed up, so that no earlier version at .*dest is lost: the Safety Net folder .*no such parent/,
                 File.read("/var/log/.orvane_daily.err"))
  end

  # Whatever another user left at the flag or progress path is stale: the
  # run goes on, and no link is followed.
  def test_planted_flags_do_not_stop_a_run
    write(File.join(@source, "a"), "a")
    victim = File.join(@dir, "victim")
    write(victim, "untouched")
    nobody = Etc.getpwnam("nobody")
    plant = lambda do |kind, path|
      FileUtils.rm_rf(path)
      case kind
      when :file then write(path, "junk")
      when :folder then write(File.join(path, "inside"), "junk")
      when :link then File.symlink(victim, path)
      end
      File.lchown(nobody.uid, nobody.gid, path)
    end
    %i[file folder link].each do |kind|
      plant[kind, "/tmp/ov_Daily.run"]
      plant[kind, "/tmp/ov_Daily.progress"]
      assert_equal(0, run_backup(showProgress: true), kind.to_s)
      assert_equal(["a"], Dir.children(@dest))
      assert_false(File.exist?("/tmp/ov_Daily.run") || File.symlink?("/tmp/ov_Daily.run"), kind.to_s)
      assert_equal("untouched", File.read(victim))
      FileUtils.rm_rf(@dest)
      FileUtils.mkdir_p(@dest)
    end
  end

  # The progress file: one line from rsync's own counts, replaced whole.
  def test_progress_line_comes_from_rsync_counts
    backup = OrvaneBackup.new(settings(showProgress: true, sourceFolders: [@source, @source], destFolders: [@dest, @dest]))
    backup.copy_line("     12,345,678  40%   11.77MB/s    0:00:01 (xfr#3, ir-chk=1000/1042)", 1)
    assert_equal("42 1042 12345678 30864195 2 2\n", File.read("/tmp/ov_Daily.progress"))
    sleep 1.05
    backup.copy_line("     30,864,195 100%   11.77MB/s    0:00:02 (xfr#9, to-chk=0/1042)", 1)
    assert_equal("1042 1042 30864195 30864195 2 2\n", File.read("/tmp/ov_Daily.progress"))
    assert_false(File.lstat("/tmp/ov_Daily.progress").symlink?)
    assert_empty(Dir.glob("/tmp/ov_Daily.progress.*"), "no temporary file stays")
    backup.copy_line("rsync: [sender] send_files failed to open \"x\": Permission denied (13)", 1)
    assert_match(/send_files failed/, File.read(File.join(@dir, "daily.log")))
  end

  def test_missing_destination_is_an_error_and_touches_nothing
    write(File.join(@source, "a"), "a")
    missing = File.join(@dir, "unplugged disk")
    assert_equal(1, run_backup(destFolders: [missing]))
    assert_false(File.exist?(missing))
    assert_match(/unplugged disk: the destination folder is missing \(is its disk connected\?\)/, File.read("/var/log/.orvane_daily.err"))
  end

  def test_full_destination_is_an_error_and_touches_nothing
    @full = File.join(@dir, "full")
    FileUtils.mkdir_p(@full)
    assert(system("mount", "-t", "tmpfs", "-o", "size=512k", "ov-full", @full))
    write(File.join(@full, "present"), "present")
    system("dd", "if=/dev/zero", "of=#{@full}/filler", "bs=64k", "count=100", err: File::NULL)
    before = tree(@full)
    write(File.join(@source, "a"), "a" * 100_000)
    assert_equal(1, run_backup(destFolders: [@full]))
    assert_equal(before, tree(@full))
    assert_match(/the destination is full/, File.read("/var/log/.orvane_daily.err"))
  end

  def test_toast_and_an_error_keep_the_other_pairs_going
    write(File.join(@source, "a"), "a")
    second = File.join(@dir, "second")
    FileUtils.mkdir_p(second)
    assert_equal(1, run_backup(sourceFolders: [@source, @source], destFolders: ["Toast", second]))
    assert_equal(["a"], Dir.children(second))
    assert_match(/not burned: Toast Titanium does not exist/, File.read("/var/log/.orvane_daily.err"))
    assert(File.exist?(File.join(@dir, ".lastbackup")), "the run completed")
  end
end

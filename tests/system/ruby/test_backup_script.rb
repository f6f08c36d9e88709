# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The backup script template's logic on real files, with the real psync and
# rsync, loaded into this process (or a child, where a fake clock or a kill
# must reach it). Runs as root inside the test sandbox: the run flags and
# error files are at fixed paths, and it makes users and mounts.
# encoding: ASCII-8BIT
require_relative "sandbox_case"

TEMPLATE = ENV.fetch("OV_TEMPLATE")
PSYNC = ENV.fetch("OV_PSYNC")
load TEMPLATE

class TestBackupScript < Test::Unit::TestCase
  include SandboxCase

  def setup
    super
    @source = File.join(@dir, "source")
    @dest = File.join(@dir, "dest")
    @net = File.join(@dir, "Safety Net Archives")
    FileUtils.mkdir_p([@source, @dest, @net])
  end

  def settings(**changes)
    {
      frequency: "Daily", backupCommand: PSYNC, sourceFolders: [@source], destFolders: [@dest], exclusions: [],
      removedExclusions: [], logfile: log_file, lastBackup: File.join(@dir, ".lastbackup"),
      lastRun: File.join(@dir, ".lastrun"), disksFile: File.join(@dir, ".disks"), archiveRecord: File.join(@dir, ".archives"),
      runFlag: FLAG, errorFile: ERRORS, progressFile: PROGRESS,
      resourcesFolder: "/Library/PreferencePanes/Orvane.prefPane/Contents/Resources",
      toastApplicationName: "Toast Titanium", username: "root", remoteBackup: false, showProgress: false,
      repairPermissions: false, promptBeforeBackup: false, shouldWaitUntilAway: false, autoConnect: false,
      remoteServerName: "", remoteAccountName: "", remoteVolumeName: "", shouldArchive: false, maxArchives: 0,
      safetyNetFolder: "", archiveContents: "", runKind: "scheduled"
    }.merge(changes)
  end

  def run_backup(**changes) = OrvaneBackup.new(settings(**changes)).run

  # The same in a process of its own, started through PREFIX (faketime).
  def run_child(*prefix, **changes)
    File.binwrite(File.join(@dir, "settings"), Marshal.dump(settings(**changes)))
    runner = "load #{TEMPLATE.dump}; exit OrvaneBackup.new(Marshal.load(File.binread(ARGV[0]))).run"
    system(*prefix, "ruby", "--disable-gems", "-e", runner, File.join(@dir, "settings"))
    $?.exitstatus
  end

  def net(**changes) = { shouldArchive: true, maxArchives: 3, safetyNetFolder: @net, archiveContents: "Everything" }.merge(changes)

  def write(path, data, mode: 0o644)
    FileUtils.mkdir_p(File.dirname(path))
    File.binwrite(path, data)
    File.chmod(mode, path)
  end

  # An earlier version: older, so a rerun replaces it.
  def write_old(path, data)
    write(path, data)
    File.utime(Time.now - 3600, Time.now - 3600, path)
  end

  # --- A run and what it leaves ----------------------------------------------

  # A plain run copies, leaves no error file, writes the marker and the
  # run's kind beside it, and keeps its log for administrators only, whatever
  # modes the log had.
  def test_a_run_copies_and_keeps_its_status_private
    write(File.join(@source, "Fotos ✓/été.txt"), "é")
    write(File.join(@source, "evil \#{`touch /tmp/pwned`}"), "x")
    nobody = Etc.getpwnam("nobody")
    write(log_file, "an old log line\n", mode: 0o666)
    File.chown(nobody.uid, nobody.gid, log_file)
    admin = SandboxCase.user("ovadmin", "sudo")

    assert_equal(0, run_backup)
    assert_equal(files(@source), files(@dest))
    assert_false(File.exist?("/tmp/pwned"), "no name runs code")
    assert_equal(Time.now.strftime("%m/%d/%y"), File.read(File.join(@dir, ".lastbackup")))
    assert_equal("scheduled #{Time.now.strftime('%m/%d/%y')} complete\n", File.read(File.join(@dir, ".lastrun")))
    assert_false(File.exist?(ERRORS), "no errors, no error file")
    assert_false(File.exist?(FLAG))
    assert_match(/an old log line\n.*Daily: backup started \(1 folder\).*Daily: backup complete\n\z/m, log_text)
    stat = File.stat(log_file)
    assert_equal([0, Etc.getgrnam("sudo").gid, 0o640], [stat.uid, stat.gid, stat.mode & 0o7777])
    assert(system("runuser", "-u", admin.name, "--", "cat", log_file, out: File::NULL), "an administrator reads the log")
    assert_false(system("runuser", "-u", "nobody", "--", "cat", log_file, out: File::NULL, err: File::NULL))

    # An error file is made private too, even where one stood with other modes.
    write(ERRORS, "old\n", mode: 0o666)
    assert_equal(1, run_backup(destFolders: [File.join(@dir, "unplugged")]))
    stat = File.stat(ERRORS)
    assert_equal([0, Etc.getgrnam("sudo").gid, 0o640], [stat.uid, stat.gid, stat.mode & 0o7777])
    assert_no_match(/^old$/, errors)
    assert_equal("scheduled #{Time.now.strftime('%m/%d/%y')} errors\n", File.read(File.join(@dir, ".lastrun")))
  end

  # Each pair that cannot be backed up says why in a user's words, changes
  # nothing at its destination, and keeps the other pairs going.
  def test_pairs_that_are_refused_say_why
    write(File.join(@source, "a"), "a" * 100_000)
    full = File.join(@dir, "full")
    mount_tmpfs(full, size: "512k")
    system("dd", "if=/dev/zero", "of=#{full}/filler", "bs=64k", "count=100", err: File::NULL)
    other = File.join(@dir, "other")
    FileUtils.mkdir_p(other)
    cases = {
      [@source, "Toast"] => /#{@source}: the disc was not burned: Toast Titanium does not exist on this system/,
      [File.join(@dir, "gone"), @dest] => /gone: the source folder does not exist \(is its disk connected\?\)/,
      [@source, File.join(@dir, "unplugged")] => /unplugged: the destination folder is missing \(is its disk connected\?\)/,
      [@source, File.join(@source, "inside")] => /lie inside each other; nothing was copied/,
      [@source, full] => /#{full}: the destination is full \(\d+ bytes free\); #{@source} was not backed up/,
    }
    FileUtils.mkdir_p(File.join(@source, "inside"))
    cases.each do |(source, destination), expected|
      before = files(full)
      assert_equal(1, run_backup(sourceFolders: [source, @source], destFolders: [destination, other]))
      assert_match(expected, errors)
      assert_equal(["a"], files(other), "the next pair still ran")
      assert_equal(before, files(full))
      assert_empty(files(@dest))
      FileUtils.rm_rf(File.join(other, "a"))
    end
    # A copy that fails says psync's reason; a copy tool that is not there says so.
    assert_equal(1, run_backup(backupCommand: "#{PSYNC} --no-such-option"))
    assert_match(/#{@source} -> #{@dest}: the copy failed: .+; files not yet copied keep their earlier version/, errors)
    assert_equal(1, run_backup(backupCommand: File.join(@dir, "no-psync")))
    assert_match(/#{@source} -> #{@dest}: the copy tool #{@dir}\/no-psync is not installed; nothing was copied/, errors)
    assert_empty(files(@dest))
  end

  # A disk that fills during the copy is said to have filled.
  def test_a_destination_that_fills_during_the_copy
    small = File.join(@dir, "small")
    mount_tmpfs(small, size: "3m")
    write(File.join(@source, "big"), Random.bytes(5 * 1024 * 1024))
    assert_equal(1, run_backup(destFolders: [small]))
    assert_match(/#{@source} -> #{small}: the destination became full; files not yet copied keep their earlier version/, errors)
  end

  # Auto-connect belongs to runs whose items are on the remote volume.
  def test_auto_connect_only_for_remote_runs
    write(File.join(@source, "a"), "a")
    remote = { autoConnect: true, remoteServerName: "smb://ov-nowhere.invalid", remoteAccountName: "ann", remoteVolumeName: "Share" }
    assert_equal(0, run_backup(**remote))
    assert_no_match(/auto-connect|automount/, log_text)
    run_backup(remoteBackup: true, backupCommand: "#{PSYNC} -r", **remote)
    assert_match(/auto-connect: /, errors)
  end

  # A manual run refreshes the daily marker, as it always has, but says in
  # the record beside it that it was a manual run; a marker from before
  # the record counts as a scheduled run's.
  def test_a_manual_run_is_recorded_as_manual
    write(File.join(@source, "a"), "a")
    File.write(File.join(@dir, ".lastbackup"), "01/02/26")
    write(ERRORS, "an earlier error\n")
    assert_equal(0, run_backup(runKind: "manual"))
    today = Time.now.strftime("%m/%d/%y")
    assert_equal(today, File.read(File.join(@dir, ".lastbackup")))
    assert_equal("scheduled 01/02/26 errors\nmanual #{today} complete\n", File.read(File.join(@dir, ".lastrun")))
    assert_match(/Daily: manual backup started/, log_text)
    assert_equal(0, run_backup)
    assert_equal("scheduled #{today} complete\nmanual #{today} complete\n", File.read(File.join(@dir, ".lastrun")))
  end

  # Whatever another user left at the flag's or the progress file's path is
  # put aside without a walk, however deep: the run makes its flag, holding
  # its PID, and reports no error.
  def test_planted_flags_do_not_stop_a_run
    write(File.join(@source, "a"), "a")
    victim = File.join(@dir, "victim")
    write(victim, "untouched")
    # The flag as the pane sees it while the copy runs.
    probe = File.join(@dir, "probe-psync")
    seen = File.join(@dir, "seen")
    File.write(probe, "#!/bin/sh\nstat -c '%U %F' #{FLAG} > '#{seen}'; cat #{FLAG} >> '#{seen}'\nexec #{PSYNC} \"$@\"\n")
    File.chmod(0o755, probe)
    plants = {
      file: "echo junk > \"$1\"", link: "ln -s '#{victim}' \"$1\"", fifo: "mkfifo \"$1\"",
      deep: "python3 -c 'import os,sys; os.mkdir(sys.argv[1]); os.chdir(sys.argv[1])\nfor i in range(30000): os.mkdir(\"d\"); os.chdir(\"d\")' \"$1\""
    }
    plants.each do |kind, script|
      [FLAG, PROGRESS].each { |path| assert(system("runuser", "-u", "nobody", "--", "sh", "-c", script, "sh", path), kind.to_s) }
      started = Time.now
      assert_equal(0, run_backup(backupCommand: probe, showProgress: true), "#{kind}: #{errors}")
      assert_operator(Time.now - started, :<, 30, "#{kind}: nothing was walked")
      assert_match(/\Aroot regular file\n\d+\n\z/, File.read(seen), kind.to_s)
      assert_false(File.exist?(FLAG) || File.symlink?(FLAG), kind.to_s)
      assert_equal("untouched", File.read(victim))
      assert_equal(["a"], files(@dest))
    end
    assert_match(%r{something left at /tmp/ov_Daily.run was put aside as /tmp/\.ov_Daily\.run\.stale-}, log_text)
  end

  # The progress file: one line from rsync's own counts, replaced whole.
  def test_progress_line_comes_from_rsync_counts
    backup = OrvaneBackup.new(settings(showProgress: true, sourceFolders: [@source, @source], destFolders: [@dest, @dest]))
    backup.instance_variable_set(:@copy, { index: 1 })
    backup.copy_line("     12,345,678  40%   11.77MB/s    0:00:01 (xfr#3, ir-chk=1000/1042)", nil)
    assert_equal("42 1042 12345678 30864195 2 2\n", File.read(PROGRESS))
    sleep 1.05
    backup.copy_line("     30,864,195 100%   11.77MB/s    0:00:02 (xfr#9, to-chk=0/1042)", nil)
    assert_equal("1042 1042 30864195 30864195 2 2\n", File.read(PROGRESS))
    assert_empty(Dir.glob("#{PROGRESS}.*"), "no temporary file stays")
  end

  # --- Exclusions and the deletions question --------------------------------

  def test_exclusions_become_psync_options
    backup = OrvaneBackup.new(settings(
      exclusions: [["*.tmp", "#{@source}/Cache/", "/elsewhere/x", "#{@source}", "**/build", "#{@source}/old notes"]],
      removedExclusions: [["**/build", "#{@source}/old notes"]]
    ))
    assert_equal(["--exclude=*.tmp", "--exclude-path=Cache", "--drop=**/build", "--drop-path=old notes"],
                 backup.exclusion_options(@source, 0))
    assert_match(%r{the exclusion /elsewhere/x does not lie inside this source; it is ignored}, log_text)
    assert_equal([], backup.exclusion_options(@source, 1), "a pair without exclusions")

    # As psync takes them: left out and kept, or dropped from the backup too.
    write(File.join(@source, "keep.txt"), "k")
    write(File.join(@source, "x.tmp"), "t")
    write(File.join(@source, "Cache", "c"), "c")
    write(File.join(@dest, "Cache", "earlier"), "e")
    write(File.join(@dest, "old notes"), "n")
    write(File.join(@source, "old notes"), "n")
    assert_equal(0, run_backup(exclusions: [["*.tmp", "#{@source}/Cache", "#{@source}/old notes"]],
                               removedExclusions: [["#{@source}/old notes"]]), errors)
    assert_equal(["Cache/earlier", "keep.txt"], files(@dest))
  end

  # A mirror that would delete much holds the deletions and asks; with no
  # one to ask (no session), nobody answers at once: nothing is deleted, and
  # the run ends with a caution that says what and where.
  def test_held_deletions_without_anyone_to_ask
    8.times { |i| write(File.join(@dest, "old #{i}"), "o") }
    write(File.join(@dest, "kept"), "k")
    write(File.join(@source, "kept"), "k")
    write(File.join(@source, "new"), "n")
    started = Time.now
    assert_equal(1, run_backup(backupCommand: "#{PSYNC} -d"))
    assert_operator(Time.now - started, :<, 30, "nobody to ask: no wait")
    assert_equal(10, files(@dest).size, "new files copied, nothing deleted")
    assert_match(/8 files in #{@dest} are no longer in #{@source}; they were kept in the backup, since nobody answered/, errors)
    assert_match(/Daily: backup finished with 1 warning\n/, log_text)
    assert_equal("scheduled #{Time.now.strftime('%m/%d/%y')} caution\n", File.read(File.join(@dir, ".lastrun")))
  end

  # --- The Safety Net --------------------------------------------------------------

  # With the default options the Safety Net folder is one nothing made yet:
  # the run makes it, as its owner and never as root, and backs up. Where it
  # cannot be made or used, the run says why in words and overwrites nothing.
  def test_safety_net_folder_made_as_its_owner_or_refused_in_words
    ann = SandboxCase.user("ovann")
    other = SandboxCase.user("ovother")
    documents = File.join(ann.dir, "Documents")
    FileUtils.rm_rf(documents)
    system("runuser", "-u", ann.name, "--", "mkdir", documents)
    default = File.join(documents, "Safety Net Archives")
    write(File.join(@source, "letter"), "new letter")
    write_old(File.join(@dest, "letter"), "old letter")
    assert_equal(0, run_backup(**net(safetyNetFolder: default, username: ann.name)), errors)
    stat = File.lstat(default)
    assert_equal([ann.uid, 0o700], [stat.uid, stat.mode & 0o7777])
    assert_equal("new letter", File.read(File.join(@dest, "letter")))
    kept = Dir.glob(File.join(default, "*Daily", @dest.delete_prefix("/"), "letter"))
    assert_equal(["old letter"], kept.map { |f| File.read(f) })
    assert_match(/Safety Net: made the folder #{default}, which was missing/, log_text)

    root_only = File.join(@dir, "root only")
    FileUtils.mkdir_p(root_only)
    not_a_folder = File.join(@dir, "file")
    write(not_a_folder, "x")
    linked = File.join(ann.dir, "link")
    system("runuser", "-u", ann.name, "--", "ln", "-sfn", root_only, linked)
    others = File.join(other.dir, "Safety Net Archives")
    system("runuser", "-u", other.name, "--", "mkdir", "-p", others)
    refusals = {
      File.join(@dir, "no such parent", "Safety Net Archives") =>
        /the folder it belongs in, #{@dir}\/no such parent, does not exist \(is its disk connected\?\)/,
      File.join(root_only, "Safety Net Archives") => /#{ann.name} may not make folders in #{root_only} \(is its disk connected\?\)/,
      File.join(linked, "Safety Net Archives") => /#{ann.name} may not make folders in #{linked}/,
      linked => /is a link to another place; it must be a folder of its own/,
      not_a_folder => /#{not_a_folder} is not a folder/,
      others => /belongs to #{other.name}, not to #{ann.name}, whose backups these are/,
    }
    refusals.each do |folder, expected|
      write_old(File.join(@dest, "letter"), "old letter")
      assert_equal(1, run_backup(**net(safetyNetFolder: folder, username: ann.name)), folder)
      assert_match(/#{@source}: not backed up, so that no earlier version at #{@dest} is lost: /, errors)
      assert_match(expected, errors)
      assert_equal("old letter", File.read(File.join(@dest, "letter")), folder)
    end
    assert_empty(Dir.children(root_only), "nothing was made as root")
    assert_false(File.exist?(File.join(@dir, "no such parent")))
  end

  # Each choice keeps exactly its files; the run's archives are recorded
  # in the order the runs made them.
  def test_safety_net_choices
    expected = { "Changed" => %w[changed], "Deleted" => %w[deleted], "Everything" => %w[changed deleted] }
    expected.each do |contents, kept|
      FileUtils.rm_rf([@source, @dest])
      write_old(File.join(@dest, "changed"), "old")
      write(File.join(@source, "changed"), "new")
      write(File.join(@dest, "deleted"), "deleted")
      # Enough alike that one deletion is not held for the user.
      8.times do |i|
        write(File.join(@source, "same #{i}"), "same")
        FileUtils.cp(File.join(@source, "same #{i}"), File.join(@dest, "same #{i}"), preserve: true)
      end
      before = Dir.children(@net)
      assert_equal(0, run_backup(backupCommand: "#{PSYNC} -d", **net(archiveContents: contents)), errors)
      made = Dir.children(@net) - before
      assert_equal(1, made.size, contents)
      assert_equal(kept, files(File.join(@net, made.first, @dest.delete_prefix("/"))), contents)
      sleep 1.1 # archives are named by the second
    end
    record = File.binread(File.join(@dir, ".archives")).split("\0").each_slice(2).map(&:last)
    assert_equal(Dir.children(@net).sort, record, "recorded oldest first")
    assert_equal(0o600, File.stat(File.join(@dir, ".archives")).mode & 0o777)
  end

  # Archives go by the order runs happened, never by their dates: a run
  # under a clock set to 2000 keeps its own archive, removes the oldest, and
  # says the dates look wrong. Archives the record does not know count as
  # the oldest; another frequency's are not this run's to count.
  def test_pruning_follows_the_order_of_runs
    nobody = Etc.getpwnam("nobody")
    File.chown(nobody.uid, nobody.gid, @net)
    unknown = File.join(@net, "2026-03-01 10.00.00 Daily")
    weekly = File.join(@net, "2020-01-01 00.00.00 Weekly")
    [unknown, weekly].each { |a| write(File.join(a, "x"), "x") }
    FileUtils.chown_R(nobody.uid, nobody.gid, [unknown, weekly])
    archives = lambda do
      Dir.children(@net).grep(/Daily\z/).sort
    end
    change = lambda do |text|
      write_old(File.join(@dest, "a"), "old #{text}")
      write(File.join(@source, "a"), "new #{text}")
    end
    options = net(maxArchives: 2, username: "nobody")
    change["1"]
    assert_equal(0, run_child(**options), errors)
    first = archives[] - [File.basename(unknown)]
    assert_equal(1, first.size)
    sleep 1.1
    change["2"]
    assert_equal(0, run_child(**options), errors)
    assert_equal(2, archives[].size)
    assert_false(File.exist?(unknown), "an archive the record does not know goes first")

    change["3"]
    assert_equal(1, run_child("faketime", "2000-01-01 12:00:00", **options))
    now = archives[]
    assert_equal(2, now.size)
    assert_include(now, "2000-01-01 12.00.00 Daily", "the run's own archive stays")
    assert_not_include(now, first.first, "the oldest run's archive went")
    assert_equal(["old 3"], Dir.glob(File.join(@net, "2000-01-01 12.00.00 Daily", "**", "a")).map { |f| File.read(f) })
    assert_match(/this run's archive 2000-01-01 12\.00\.00 Daily is dated before .* the computer's clock may be wrong/, errors)
    assert(File.directory?(weekly), "a daily run leaves the weekly archives alone")

    # The clock is right again: the archive dated 2000 stays, being the
    # newer of the earlier two by the order of runs.
    second = now - ["2000-01-01 12.00.00 Daily"]
    sleep 1.1
    change["4"]
    assert_equal(0, run_child(**options), errors)
    assert_include(archives[], "2000-01-01 12.00.00 Daily")
    assert_not_include(archives[], second.first)
  end

  # An archive that cannot go is an error in words.
  def test_pruning_failure_is_reported
    stuck = File.join(@net, "2020-01-03 00.00.00 Daily")
    write(File.join(stuck, "file"), "archived")
    omit("no chattr here") unless system("chattr", "+i", stuck, err: File::NULL)
    begin
      write_old(File.join(@dest, "a"), "old")
      write(File.join(@source, "a"), "new")
      assert_equal(1, run_backup(**net(maxArchives: 1)))
      assert_match(/Safety Net: old archives in #{@net} could not be removed: /, errors)
    ensure
      system("chattr", "-i", stuck)
    end
  end

  # The Safety Net folder inside a source is never copied.
  def test_safety_net_folder_is_not_backed_up
    inside = File.join(@source, "Documents", "Safety Net Archives")
    write(File.join(inside, "2026-01-01 00.00.00 Daily", "old"), "archived")
    write(File.join(@source, "Documents", "letter"), "letter")
    assert_equal(0, run_backup(**net(safetyNetFolder: inside)), errors)
    assert_equal(["Documents/letter"], files(@dest))
  end
end

# SPDX-FileCopyrightText: 2026 Orvane developers
# SPDX-License-Identifier: GPL-2.0-or-later
# The backup script on real files with the real psync and rsync: the template
# loaded here (or in a child, where a fake clock must reach it), and scripts
# filled by the pane's builder run by path as cron runs them. Root in the sandbox.
%w[test/unit tmpdir fileutils etc].each { require _1 }
TEMPLATE, PSYNC, FILL = %w[OV_TEMPLATE OV_PSYNC OV_FILL_SCRIPT].map { ENV.fetch(_1) }
load TEMPLATE

class TestBackupScript < Test::Unit::TestCase
  FLAG, PROGRESS = "/tmp/ov_Daily.run", "/tmp/ov_Daily.progress"
  ERRORS, DAILY = "/var/log/.orvane_daily.err", "/Library/Application Support/Orvane/.daily"
  # What a user must never read: the implementation's own words.
  IMPLEMENTATION_WORDS = /rb_sysopen|Errno|#<|NoMethodError|NilClass|\.rb:\d+/

  def self.user(name, *groups)
    system("useradd", "-m", *(groups.empty? ? [] : ["-G", groups.join(",")]), name, out: File::NULL, err: File::NULL) unless (Etc.getpwnam(name) rescue nil)
    Etc.getpwnam(name)
  end

  def setup
    raise "runs only inside tests/sandbox/ov-sandbox" unless ENV["OV_IN_SANDBOX"]
    @dir = Dir.mktmpdir("ov-test").b
    File.chmod(0o755, @dir)
    @mounts = []
    FileUtils.rm_rf([FLAG, PROGRESS, ERRORS])
    @source, @dest, @net = ["source", "dest", "Safety Net Archives"].map { File.join(@dir, _1) }
    FileUtils.mkdir_p([@source, @dest, @net, DAILY])
  end

  def teardown
    [log_file, ERRORS, "/var/log/orvane_daily.log"].each { |f| assert_no_match(IMPLEMENTATION_WORDS, read(f), "#{f} shows the implementation's words") }
    @mounts.reverse_each { |m| system("umount", "-q", m) }
    FileUtils.rm_rf(@dir)
  end

  def log_file = File.join(@dir, "daily.log")
  def read(file) = File.exist?(file) ? File.binread(file) : ""
  def errors = read(ERRORS)
  def log_text = read(log_file)
  def last_run = File.read(File.join(@dir, ".lastrun"))
  def today = Time.now.strftime("%m/%d/%y")
  def files(folder) = Dir.glob("**/*", File::FNM_DOTMATCH, base: folder).reject { |p| p.end_with?(".") || File.directory?(File.join(folder, p)) }.sort

  def mount_tmpfs(point, size: "16m", name: "ov-test")
    FileUtils.mkdir_p(point)
    assert(system("mount", "-t", "tmpfs", "-o", "size=#{size}", name, point), "mount #{point}")
    @mounts << point
  end

  def unmount(point)
    assert(system("umount", point))
    @mounts.delete(point)
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

  def run_child(*prefix, **changes)
    File.binwrite(File.join(@dir, "settings"), Marshal.dump(settings(**changes)))
    runner = "load #{TEMPLATE.dump}; exit OrvaneBackup.new(Marshal.load(File.binread(ARGV[0]))).run"
    system(*prefix, "ruby", "--disable-gems", "-e", runner, File.join(@dir, "settings"))
    $?.exitstatus
  end

  def cron_run(*fill_arguments) # a script the pane's builder fills, run by its path as cron runs it
    script = File.join(@dir, "orvane_daily.rb")
    File.binwrite(script, IO.popen([FILL, *fill_arguments], "rb", &:read))
    File.chmod(0o700, script)
    system("env", "-i", "LANG=C.UTF-8", "PATH=/usr/sbin:/usr/bin:/sbin:/bin", script, out: File::NULL, err: File::NULL)
    $?.exitstatus
  end

  def net(**changes) = { shouldArchive: true, maxArchives: 3, safetyNetFolder: @net, archiveContents: "Everything" }.merge(changes)

  def write(path, data, mode: 0o644, age: 0) # age: an earlier version, older than the source's, so a run replaces it
    FileUtils.mkdir_p(File.dirname(path))
    File.binwrite(path, data)
    File.chmod(mode, path)
    File.utime(Time.now - age, Time.now - age, path)
  end

  # The log and the error file are for administrators only, whatever modes they had; no file name runs code.
  def test_the_status_is_private
    write(File.join(@source, "evil \#{`touch /tmp/pwned`}"), "x")
    nobody = Etc.getpwnam("nobody")
    write(log_file, "an old log line\n", mode: 0o666)
    File.chown(nobody.uid, nobody.gid, log_file)
    admin = self.class.user("ovadmin", "sudo")
    assert_equal(0, run_backup)
    assert_false(File.exist?("/tmp/pwned"))
    assert_match(/an old log line\n.*Daily: backup started \(1 folder\).*Daily: backup complete\n\z/m, log_text)
    assert(system("runuser", "-u", admin.name, "--", "cat", log_file, out: File::NULL), "an administrator reads the log")
    assert_false(system("runuser", "-u", "nobody", "--", "cat", log_file, out: File::NULL, err: File::NULL))

    write(ERRORS, "old\n", mode: 0o666)
    assert_equal(1, run_backup(destFolders: [File.join(@dir, "unplugged")]))
    assert_no_match(/^old$/, errors)
    assert_equal("scheduled #{today} errors\n", last_run)
    [log_file, ERRORS].each { |f| assert_equal([0, Etc.getgrnam("sudo").gid, 0o640], File.stat(f).then { [_1.uid, _1.gid, _1.mode & 0o7777] }, f) }
  end

  # Each pair that cannot be backed up says why in words, changes nothing there, and the other pairs go on.
  def test_pairs_that_are_refused_say_why
    write(File.join(@source, "a"), "a" * 100_000)
    full = File.join(@dir, "full")
    mount_tmpfs(full, size: "512k")
    system("dd", "if=/dev/zero", "of=#{full}/filler", "bs=64k", "count=100", err: File::NULL)
    other = File.join(@dir, "other")
    FileUtils.mkdir_p([other, File.join(@source, "inside")])
    cases = {
      [@source, "Toast"] => /#{@source}: the disc was not burned: Toast Titanium does not exist on this system/,
      [File.join(@dir, "gone"), @dest] => /gone: the source folder does not exist \(is its disk connected\?\)/,
      [@source, File.join(@dir, "unplugged")] => /unplugged: the destination folder is missing \(is its disk connected\?\)/,
      [@source, File.join(@source, "inside")] => /lie inside each other; nothing was copied/,
      [@source, full] => /#{full}: the destination is full \(\d+ bytes free\); #{@source} was not backed up/,
    }
    cases.each do |(source, destination), expected|
      before = files(full)
      assert_equal(1, run_backup(sourceFolders: [source, @source], destFolders: [destination, other]))
      assert_match(expected, errors)
      assert_equal(["a"], files(other), "the next pair still ran")
      assert_equal(before, files(full))
      assert_empty(files(@dest))
      FileUtils.rm_rf(File.join(other, "a"))
    end
    assert_equal(1, run_backup(backupCommand: "#{PSYNC} --no-such-option"))
    assert_match(/#{@source} -> #{@dest}: the copy failed: .+; files not yet copied keep their earlier version/, errors)
    assert_equal(1, run_backup(backupCommand: File.join(@dir, "no-psync")))
    assert_match(/#{@source} -> #{@dest}: the copy tool #{@dir}\/no-psync is not installed; nothing was copied/, errors)
    assert_empty(files(@dest))
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

  # The run record keeps each kind's last run; a marker from before the record counts as a scheduled run's.
  def test_a_manual_run_is_recorded_beside_the_scheduled_one
    write(File.join(@source, "a"), "a")
    File.write(File.join(@dir, ".lastbackup"), "01/02/26")
    write(ERRORS, "an earlier error\n")
    assert_equal(0, run_backup(runKind: "manual"))
    assert_equal("scheduled 01/02/26 errors\nmanual #{today} complete\n", last_run)
    assert_match(/Daily: manual backup started/, log_text)
    assert_equal(0, run_backup)
    assert_equal("scheduled #{today} complete\nmanual #{today} complete\n", last_run)
  end

  # Whatever another user left at the flag's or the progress file's path is put
  # aside without a walk, however deep: the run makes its flag, holding its PID.
  def test_planted_flags_do_not_stop_a_run
    write(File.join(@source, "a"), "a")
    victim, probe, seen = %w[victim probe-psync seen].map { File.join(@dir, _1) }
    write(victim, "untouched")
    # The flag as the pane sees it while the copy runs.
    write(probe, "#!/bin/sh\nstat -c '%U %F' #{FLAG} > '#{seen}'; cat #{FLAG} >> '#{seen}'\nexec #{PSYNC} \"$@\"\n", mode: 0o755)
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

  # Exclusions left out and kept, or dropped from the backup too; one outside the source is said to be ignored.
  def test_exclusions
    %w[keep.txt x.tmp Cache/c old\ notes build/b].each { |name| write(File.join(@source, name), "s") }
    %w[Cache/earlier old\ notes build/b].each { |name| write(File.join(@dest, name), "d") }
    assert_equal(0, run_backup(exclusions: [["*.tmp", "#{@source}/Cache/", "/elsewhere/x", @source, "**/build", "#{@source}/old notes"]],
                               removedExclusions: [["**/build", "#{@source}/old notes"]]), errors)
    assert_equal(["Cache/earlier", "keep.txt"], files(@dest))
    assert_match(%r{the exclusion /elsewhere/x does not lie inside this source; it is ignored}, log_text)
  end

  # A mirror that would delete much asks first; with no session nobody answers at
  # once: nothing is deleted, and the run ends with a caution saying what and where.
  def test_held_deletions_without_anyone_to_ask
    8.times { |i| write(File.join(@dest, "old #{i}"), "o") }
    %w[kept new].each { |name| write(File.join(@source, name), name) }
    started = Time.now
    assert_equal(1, run_backup(backupCommand: "#{PSYNC} -d"))
    assert_operator(Time.now - started, :<, 30, "nobody to ask: no wait")
    assert_equal(10, files(@dest).size, "new files copied, nothing deleted")
    assert_match(/8 files in #{@dest} are no longer in #{@source}; they were kept in the backup, since nobody answered/, errors)
    assert_match(/Daily: backup finished with 1 warning\n/, log_text)
    assert_equal("scheduled #{today} caution\n", last_run)
  end

  # Where the Safety Net folder cannot be made or used, the run says why and overwrites nothing; nothing is made as root.
  def test_safety_net_folder_refused_in_words
    ann, other = self.class.user("ovann"), self.class.user("ovother")
    write(File.join(@source, "letter"), "new letter")
    root_only, not_a_folder = File.join(@dir, "root only"), File.join(@dir, "file")
    FileUtils.mkdir_p(root_only)
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
      write(File.join(@dest, "letter"), "old letter", age: 3600)
      assert_equal(1, run_backup(**net(safetyNetFolder: folder, username: ann.name)), folder)
      assert_match(/#{@source}: not backed up, so that no earlier version at #{@dest} is lost: /, errors)
      assert_match(expected, errors)
      assert_equal("old letter", File.read(File.join(@dest, "letter")), folder)
    end
    assert_empty(Dir.children(root_only))
    assert_false(File.exist?(File.join(@dir, "no such parent")))
  end

  # Archives go by the order runs happened, never by their dates: a run under a
  # clock set to 2000 keeps its own archive, removes the oldest, and says the
  # dates look wrong. Unknown archives count as the oldest; another frequency's
  # are not this run's to count.
  def test_pruning_follows_the_order_of_runs
    nobody = Etc.getpwnam("nobody")
    File.chown(nobody.uid, nobody.gid, @net)
    unknown = File.join(@net, "2026-03-01 10.00.00 Daily")
    weekly = File.join(@net, "2020-01-01 00.00.00 Weekly")
    [unknown, weekly].each { |a| write(File.join(a, "x"), "x") }
    FileUtils.chown_R(nobody.uid, nobody.gid, [unknown, weekly])
    archives = -> { Dir.children(@net).grep(/Daily\z/).sort }
    change = ->(text) { write(File.join(@dest, "a"), "old #{text}", age: 3600); write(File.join(@source, "a"), "new #{text}") }
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
    assert_equal(0o600, File.stat(File.join(@dir, ".archives")).mode & 0o777)
    change["3"]
    assert_equal(1, run_child("faketime", "2000-01-01 12:00:00", **options))
    now = archives[]
    # faketime's clock runs on from 12:00:00: on a busy machine the archive may be a second or two later.
    own = now.grep(/\A2000-01-01 12\.00\.0\d Daily\z/)
    assert_equal([2, 1], [now.size, own.size], "the run's own archive stays: #{now}")
    assert_not_include(now, first.first, "the oldest run's archive went")
    assert_equal(["old 3"], Dir.glob(File.join(@net, own.first, "**", "a")).map { |f| File.read(f) })
    assert_match(/this run's archive #{Regexp.escape(own.first)} is dated before .* the computer's clock may be wrong/, errors)
    assert(File.directory?(weekly), "a daily run leaves the weekly archives alone")

    # The clock is right again: the archive dated 2000 stays, the newer of the earlier two by the order of runs.
    second = now - own
    sleep 1.1
    change["4"]
    assert_equal(0, run_child(**options), errors)
    assert_include(archives[], own.first)
    assert_not_include(archives[], second.first)
  end

  def test_pruning_failure_is_reported
    stuck = File.join(@net, "2020-01-03 00.00.00 Daily")
    write(File.join(stuck, "file"), "archived")
    omit("no chattr here") unless system("chattr", "+i", stuck, err: File::NULL)
    write(File.join(@dest, "a"), "old", age: 3600)
    write(File.join(@source, "a"), "new")
    assert_equal(1, run_backup(**net(maxArchives: 1)))
    assert_match(/Safety Net: old archives in #{@net} could not be removed: /, errors)
  ensure
    system("chattr", "-i", stuck)
  end

  # Non-ASCII and invalid UTF-8 names everywhere, under cron's UTF-8 locale.
  def test_non_ascii_paths_in_a_filled_script
    source = File.join(@dir, "Données \xff\xfe brutes".b)
    destination = File.join(@dir, "sauvegarde été".b)
    net = File.join(@dir, "filet de sécurité".b, "Safety Net Archives")
    name = File.join("dossier ✓".b, "é\xe9.txt".b)
    FileUtils.mkdir_p(net)
    write(File.join(source, name), "nouveau")
    write(File.join(destination, name), "ancien", age: 3600)
    assert_equal(0, cron_run("--safetynet", net, "3", "Everything", source, destination), errors)
    assert_equal("nouveau", File.binread(File.join(destination, name)))
    kept = Dir.glob(File.join(net, "*", destination.delete_prefix("/"), name))
    assert_equal(["ancien"], kept.map { |f| File.binread(f) })
    assert_false(File.exist?(ERRORS))
  end

  # A disk that is not there: its bare mount point is never taken for it.
  def test_a_mount_point_without_its_disk
    source, destination = File.join(@dir, "media", "photos"), File.join(@dir, "media", "backup")
    mount_tmpfs(source, name: "ov-photos")
    mount_tmpfs(destination, name: "ov-backup")
    200.times { |i| File.binwrite(File.join(source, "photo #{i}"), "photo #{i}") }
    mirror = -> { cron_run("--mirror", source, destination) }
    assert_equal(0, mirror[], errors)
    assert_equal(200, Dir.children(destination).size)

    unmount(destination)
    File.delete(File.join(DAILY, ".lastbackup"))
    assert_equal(1, mirror[])
    assert_empty(Dir.children(destination), "nothing was written into the bare mount point")
    assert_match(%r{#{Regexp.escape(destination)}: the disk that held this backup is not there}, errors)
    assert(File.exist?(File.join(DAILY, ".lastbackup")), "the run still ends and says so")

    # The source's disk goes: the mirror does not empty the backup.
    mount_tmpfs(destination, name: "ov-backup")
    unmount(source)
    File.binwrite(File.join(destination, "kept"), "kept")
    assert_equal(1, mirror[])
    assert_equal(["kept"], Dir.children(destination))
    assert_match(%r{#{Regexp.escape(source)}: the source folder is empty \(is its disk connected\?\); it was not mirrored}, errors)

    # Something in the bare mount point: still not the disk it was.
    File.binwrite(File.join(source, "stray"), "stray")
    assert_equal(1, mirror[])
    assert_equal(["kept"], Dir.children(destination))
    assert_match(/the source folder is not on the disk it was on at the last backup/, errors)
  end
end
